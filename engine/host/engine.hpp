// The embedded workbook engine: an in-process application that implements the host object
// model (host/host.hpp) over the engine's own workbooks.
//
//   auto app = qz::engine::create_application();
//   auto wb = app->workbooks()->add();
//   app->range(u"A1")->set_formula(u"=SUM(B1:B3)");
//
// File formats plug in through `register_file_format`; the .xlsx layer registers itself, and
// `Workbooks.Open`, `Workbook.Save` and `SaveAs` reach it from there.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "engine/model/book.hpp"
#include "host/host.hpp"

namespace qz::engine {

/// A file format the engine can open and save.
struct FileFormat {
  /// Lower-case extensions without the dot ("xlsx", "xlsm").
  std::vector<String> extensions;
  /// Loads a workbook (raises qz::Error with a one-line message on failure). The Book's `name`
  /// and `path` are set by the engine afterwards.
  std::function<BookPtr(const String& path, const host::OpenArgs& args)> open;
  /// Writes the workbook to `path` (atomically; raises qz::Error on failure).
  std::function<void(Book& book, const String& path)> save;
  /// The file's Title document property, "" when it has none; raises qz::Error when the file
  /// cannot be read. Unset for formats without document properties.
  std::function<String(const String& path)> title;
};

/// Registers a format for its extensions (a later registration of an extension wins).
void register_file_format(FileFormat format);
/// The format for a file name's extension, or nullptr.
const FileFormat* file_format_for(const String& path);

/// Draws the picture `Range.CopyPicture` takes of one area of a sheet and leaves it on the
/// clipboard; the picture layer (engine/picture) registers one. Without one, CopyPicture is
/// refused, as by a host that draws no pictures. Charts are never drawn.
using PictureMaker = std::function<void(const Sheet& sheet, const Rect& area)>;
void register_picture_maker(PictureMaker maker);
/// The registered picture maker (empty when there is none).
PictureMaker picture_maker();

/// Settings a host program may choose for a new application.
struct ApplicationOptions {
  /// The clock NOW() and TODAY() read, as a 1900-system serial (1904 workbooks convert it);
  /// unset = the system clock.
  std::function<double()> clock;
  /// The application's own program folder (`Application.Path`); "" for none.
  String program_folder;
};

/// A new, empty application (no workbooks open).
host::ApplicationPtr create_application(ApplicationOptions options = {});

/// The model behind an engine host object (nullptr for objects of another host).
BookPtr book_of(const host::WorkbookPtr& workbook);
std::shared_ptr<Sheet> sheet_of(const host::WorksheetPtr& worksheet);
/// The sheet and areas of an engine Range.
struct RangeModel {
  std::shared_ptr<Sheet> sheet;
  std::vector<Rect> areas;
};
std::optional<RangeModel> range_of(const host::RangePtr& range);

/// Whether a command bar or control was added as temporary (`Temporary:=True`), so that the
/// application drops it when it closes; nullopt for anything else (built-in bars and controls
/// are not temporary).
std::optional<bool> is_temporary(const ObjectPtr& bar_or_control);

/// Opens a Book that was built outside the application (a loader, a test) as one of its
/// workbooks and activates it.
host::WorkbookPtr adopt(const host::ApplicationPtr& app, BookPtr book);

}  // namespace qz::engine
