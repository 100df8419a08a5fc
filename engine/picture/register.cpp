#include <mutex>
#include <optional>

#include "engine/host/engine.hpp"
#include "engine/picture/picture.hpp"
#include "host/environment.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::picture {

namespace {

// The engine's clipboard: the last picture CopyPicture took, until it is saved.
std::mutex& clip_mutex() {
  static std::mutex m;
  return m;
}
std::optional<Bitmap>& clip() {
  static std::optional<Bitmap> b;
  return b;
}

// The platform in place, with a clipboard that holds the engine's pictures.
class ClipboardPlatform final : public host::Platform {
 public:
  explicit ClipboardPlatform(std::shared_ptr<host::Platform> inner) : inner_(std::move(inner)) {}
  intptr_t find_window(const char* c, const char* t) override { return inner_->find_window(c, t); }
  intptr_t foreground_window() override { return inner_->foreground_window(); }
  bool set_foreground_window(intptr_t w) override { return inner_->set_foreground_window(w); }
  host::ApplicationPtr running_application(const String& id) override {
    return inner_->running_application(id);
  }
  bool start_process(const String& c) override { return inner_->start_process(c); }
  bool wait_for_input_idle(int32_t ms) override { return inner_->wait_for_input_idle(ms); }
  String app_data_folder() override { return inner_->app_data_folder(); }
  bool save_clipboard_bitmap(const String& file) override {
    std::optional<Bitmap> b;
    {
      std::lock_guard<std::mutex> lock(clip_mutex());
      b.swap(clip());
    }
    if (!b) return inner_->save_clipboard_bitmap(file);
    return write_bmp(*b, std::filesystem::path(to_utf8(file)));
  }

 private:
  std::shared_ptr<host::Platform> inner_;
};

}  // namespace

void install() {
  register_picture_maker([](const Sheet& sheet, const Rect& area) {
    Bitmap b = draw(sheet, area);
    if (b.width == 0) throw Error(err::invalid_call, "CopyPicture: the range shows no cells");
    std::lock_guard<std::mutex> lock(clip_mutex());
    clip() = std::move(b);
  });
  auto& env = host::environment();
  if (!std::dynamic_pointer_cast<ClipboardPlatform>(env.platform))
    env.platform = std::make_shared<ClipboardPlatform>(env.platform ? env.platform
                                                                    : host::headless_platform());
}

const Bitmap* clipboard() {
  std::lock_guard<std::mutex> lock(clip_mutex());
  return clip() ? &*clip() : nullptr;
}

}  // namespace qz::engine::picture
