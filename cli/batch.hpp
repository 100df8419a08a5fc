// Running a command over many workbooks: the files and folders named on the command line as
// a list of workbooks, and a pool of worker processes that handles them a few at a time.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace qzcli {

namespace fs = std::filesystem;

/// One workbook of a run.
struct Input {
  fs::path path;
  /// Where it sits below the folder it was found in (its file name when named directly), so
  /// that outputs in another folder keep the same layout.
  fs::path relative;
};

/// The workbooks that files and folders name: a folder stands for the .xlsx and .xlsm files
/// below it, in name order, without the application's lock files ("~$...") and the copies
/// `autocolor` writes beside its inputs ("*.autocolor.xlsx"), so that running twice over a
/// folder does not colour the first run's copies. Anything else is kept as it was named, for
/// the command to refuse in its own words. A Failure when nothing is left.
std::vector<Input> expand_inputs(const std::vector<std::string>& names);

/// Whether the names call for a run over many workbooks: more than one, or a folder.
bool is_batch(const std::vector<std::string>& names);

/// Adds `-j,--jobs N` (worker processes at once; 0 for one per core).
void add_jobs_option(CLI::App* cmd, int& jobs);

/// Runs `one` for every input in a worker process of its own, at most `jobs` at a time, so
/// that a workbook that fails (or crashes the worker) is reported and the others go on. Each
/// worker's output is printed in one piece as it finishes. A worker's failure is one line on
/// standard error, and, when `json`, a line {"input", "error", "status"} among the results.
/// The status is the highest any worker ended with (a crash counts as an internal error);
/// when more than one workbook was named a last line on standard error says how many failed.
int run_batch(const std::string& command, const std::vector<Input>& inputs, int jobs, bool json,
              const std::function<int(const Input&)>& one);

}  // namespace qzcli
