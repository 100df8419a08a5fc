// Pictures of ranges as the application shows them: column widths and row heights (hidden
// ones left out), fills, borders, fonts (colour, bold, italic, underline), alignment, and
// each value as its number format shows it, with "###" where a number does not fit its
// column. Charts are not drawn.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "engine/model/book.hpp"

namespace qz::engine::picture {

/// A picture as pixels: rows top to bottom, each pixel 0xAARRGGBB.
struct Bitmap {
  int width = 0;
  int height = 0;
  std::vector<uint32_t> pixels;
  uint32_t at(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x]; }
};

/// Draws `area` (0-based, inclusive) of `sheet` at the screen's 96 pixels to the inch. A
/// range whose rows or columns are all hidden draws as an empty picture.
Bitmap draw(const Sheet& sheet, const Rect& area);

/// The text a picture shows for a cell (0-based): its value as its number format shows it,
/// or "#"s as many as fit when a number is wider than its column.
String shown(const Sheet& sheet, int32_t row, int32_t col);

/// Writes the picture of `area` to `path`: a .png, .bmp (24-bit) or .svg by its extension.
/// Raises qz::Error for another extension or a file that cannot be written.
void save(const Sheet& sheet, const Rect& area, const std::filesystem::path& path);

/// Writes a bitmap as a 24-bit BMP file; false when it cannot be written.
bool write_bmp(const Bitmap& bitmap, const std::filesystem::path& path);

/// Plugs the drawing into the engine: `Range.CopyPicture` leaves the range's picture on the
/// engine's clipboard, and the platform's `save_clipboard_bitmap` (which `CopyRangeToBmpFile`
/// uses) writes it as a BMP file and empties the clipboard. The platform in place keeps
/// everything else. Call once per process, after the environment is set up.
void install();

/// The picture `CopyPicture` left, if any.
const Bitmap* clipboard();

}  // namespace qz::engine::picture
