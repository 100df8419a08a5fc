#include "batch.hpp"

#include <fmt/core.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "common.hpp"

namespace qzcli {

namespace {

std::string lower_extension(const fs::path& p) {
  std::string e = p.extension().string();
  std::transform(e.begin(), e.end(), e.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return e;
}

bool is_workbook_in_folder(const fs::path& p) {
  const std::string ext = lower_extension(p);
  if (ext != ".xlsx" && ext != ".xlsm") return false;
  const std::string name = p.filename().string();
  if (name.rfind("~$", 0) == 0) return false;
  return lower_extension(p.stem()) != ".autocolor";
}

// A worker: its input, its process and what it has written so far.
struct Worker {
  size_t index = 0;
  pid_t pid = -1;
  int out_fd = -1, err_fd = -1;
  std::string out, err;
};

// Reads what is there; false once the pipe is closed.
bool drain(int& fd, std::string& into) {
  char buf[8192];
  const ssize_t n = ::read(fd, buf, sizeof buf);
  if (n > 0) {
    into.append(buf, static_cast<size_t>(n));
    return true;
  }
  if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  ::close(fd);
  fd = -1;
  return false;
}

// In the worker: the command on one input, its refusals reported as the tool reports them.
[[noreturn]] void work(const std::string& command, const Input& input,
                       const std::function<int(const Input&)>& one) {
  int status = 0;
  try {
    status = one(input);
  } catch (const Failure& f) {
    fmt::print(stderr, "qzxl {}: {}\n", command, f.what());
    status = f.status();
  } catch (const std::exception& e) {
    fmt::print(stderr, "qzxl {}: {}: internal error: {}\n", command, input.path.string(), e.what());
    status = 70;
  }
  std::fflush(stdout);
  std::fflush(stderr);
  ::_exit(status);
}

Worker start(const std::string& command, size_t index, const Input& input,
             const std::function<int(const Input&)>& one) {
  int out[2], err[2];
  if (::pipe(out) != 0 || ::pipe(err) != 0) throw Failure("cannot start a worker (no pipes)", 70);
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t pid = ::fork();
  if (pid < 0) throw Failure("cannot start a worker (fork failed)", 70);
  if (pid == 0) {
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(err[1], STDERR_FILENO);
    for (int fd : {out[0], out[1], err[0], err[1]}) ::close(fd);
    work(command, input, one);
  }
  ::close(out[1]);
  ::close(err[1]);
  return {index, pid, out[0], err[0], {}, {}};
}

// The last non-empty line a worker wrote on standard error, without the command's prefix.
std::string failure_message(const std::string& err, const std::string& command) {
  std::string text = err;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  const size_t nl = text.rfind('\n');
  if (nl != std::string::npos) text = text.substr(nl + 1);
  const std::string prefix = "qzxl " + command + ": ";
  if (text.rfind(prefix, 0) == 0) text = text.substr(prefix.size());
  return text;
}

}  // namespace

std::vector<Input> expand_inputs(const std::vector<std::string>& names) {
  std::vector<Input> out;
  for (const auto& name : names) {
    const fs::path p = name;
    std::error_code ec;
    if (!fs::is_directory(p, ec)) {
      out.push_back({p, p.filename()});
      continue;
    }
    std::vector<Input> found;
    for (auto it =
             fs::recursive_directory_iterator(p, fs::directory_options::skip_permission_denied, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
      if (it->is_regular_file(ec) && is_workbook_in_folder(it->path()))
        found.push_back({it->path(), it->path().lexically_relative(p)});
    std::sort(found.begin(), found.end(),
              [](const Input& a, const Input& b) { return a.path < b.path; });
    out.insert(out.end(), found.begin(), found.end());
  }
  if (out.empty()) {
    std::string named;
    for (const auto& n : names) named += (named.empty() ? "" : ", ") + n;
    throw Failure(fmt::format("{}: no .xlsx or .xlsm workbooks in this folder", named));
  }
  return out;
}

bool is_batch(const std::vector<std::string>& names) {
  if (names.size() > 1) return true;
  std::error_code ec;
  return names.size() == 1 && fs::is_directory(names.front(), ec);
}

void add_jobs_option(CLI::App* cmd, int& jobs) {
  cmd->add_option("-j,--jobs", jobs,
                  "Workbooks handled at once, each in a process of its own (0: one per core)")
      ->capture_default_str()
      ->check(CLI::NonNegativeNumber);
}

int run_batch(const std::string& command, const std::vector<Input>& inputs, int jobs, bool json,
              const std::function<int(const Input&)>& one) {
  size_t limit = jobs > 0 ? static_cast<size_t>(jobs) : std::thread::hardware_concurrency();
  limit = std::max<size_t>(limit, 1);

  std::vector<Worker> running;
  std::vector<std::string> failed;
  size_t next = 0;
  int overall = 0;
  while (next < inputs.size() || !running.empty()) {
    while (next < inputs.size() && running.size() < limit) {
      running.push_back(start(command, next, inputs[next], one));
      ++next;
    }
    std::vector<pollfd> fds;
    for (const auto& w : running)
      for (int fd : {w.out_fd, w.err_fd})
        if (fd >= 0) fds.push_back({fd, POLLIN, 0});
    if (!fds.empty() && ::poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR)
      throw Failure("cannot watch the workers", 70);
    for (auto& w : running) {
      for (const auto& p : fds) {
        if (!(p.revents & (POLLIN | POLLHUP | POLLERR))) continue;
        if (p.fd == w.out_fd) drain(w.out_fd, w.out);
        if (p.fd == w.err_fd) drain(w.err_fd, w.err);
      }
    }
    // Workers whose output has ended are done: collected and printed.
    for (auto it = running.begin(); it != running.end();) {
      if (it->out_fd >= 0 || it->err_fd >= 0) {
        ++it;
        continue;
      }
      int raw = 0;
      while (::waitpid(it->pid, &raw, 0) < 0 && errno == EINTR) {
      }
      const Input& input = inputs[it->index];
      int status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 70;
      std::string err = it->err;
      if (!WIFEXITED(raw)) {
        err += fmt::format("qzxl {}: {}: the worker stopped (signal {})\n", command,
                           input.path.string(), WIFSIGNALED(raw) ? WTERMSIG(raw) : 0);
      }
      std::fwrite(it->out.data(), 1, it->out.size(), stdout);
      // A finding is a result; anything above it is a workbook that could not be handled.
      if (status > kExitFindings) {
        failed.push_back(input.path.string());
        if (json) {
          nlohmann::ordered_json j;
          j["input"] = input.path.string();
          j["error"] = failure_message(err, command);
          j["status"] = status;
          fmt::print("{}\n", j.dump());
        }
      }
      std::fflush(stdout);
      std::fwrite(err.data(), 1, err.size(), stderr);
      std::fflush(stderr);
      overall = std::max(overall, status);
      it = running.erase(it);
    }
  }
  if (inputs.size() > 1) {
    fmt::print(stderr, "qzxl {}: {} workbooks, {} failed\n", command, inputs.size(), failed.size());
  }
  return overall;
}

}  // namespace qzcli
