#include "com/src/windows_services.hpp"

#include <windows.h>

#include <commdlg.h>
#include <shlobj.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "com/src/convert.hpp"
#include "com/src/disp_object.hpp"
#include "com/src/host_adapter.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {

namespace {

std::wstring wstr(const String& s) {
  return std::wstring(s.begin(), s.end());
}
String ustr(const wchar_t* s, size_t n) {
  return String(s, s + n);
}

HWND main_window() {
  return FindWindowA("XLMAIN", nullptr);
}

// The file unattended runs record their message boxes in, or "" when a person is there.
std::wstring unattended_log() {
  wchar_t buf[MAX_PATH * 2];
  DWORD n = GetEnvironmentVariableW(L"QZXL_UNATTENDED", buf, MAX_PATH * 2);
  if (n == 0 || n >= MAX_PATH * 2) return {};
  return std::wstring(buf, n);
}

// Progress shown in the application's status bar, which the application clears again when
// the run ends.
class StatusBarProgress final : public host::Progress {
 public:
  explicit StatusBarProgress(ComPtr<IDispatch> app) : app_(std::move(app)) {}
  ~StatusBarProgress() override {
    try {
      if (app_.target()) {
        Variant off[1] = {Variant(false)};
        app_.invoke(u"StatusBar", Invoke::Put, off);
      }
    } catch (...) {
    }
  }
  void show(const String& text, int32_t percent) override {
    if (!app_.target()) return;
    Variant v[1] = {Variant(text + u" " + to_string(Variant(percent)) + u"%")};
    try {
      app_.invoke(u"StatusBar", Invoke::Put, v);
    } catch (const Error&) {
      // A status bar that refuses text only loses the display, never the run.
    }
  }

 private:
  LateBound app_;
};

class WindowsUi final : public host::Ui {
 public:
  int32_t msg_box(const String& prompt, int32_t style, const String& title) override {
    const std::wstring log = unattended_log();
    if (!log.empty()) {
      const int32_t answer = host::headless_ui()->msg_box(prompt, style, title);
      if (FILE* f = _wfopen(log.c_str(), L"ab")) {
        const std::string line = to_utf8(title) + "|" + std::to_string(style) + "|" +
                                 to_utf8(prompt) + "|" + std::to_string(answer) + "\n";
        fwrite(line.data(), 1, line.size(), f);
        fclose(f);
      }
      return answer;
    }
    return MessageBoxW(main_window(), wide(prompt), wide(title),
                       static_cast<UINT>(style) | MB_SETFOREGROUND);
  }

  String get_open_filename(const host::FileDialogArgs& args) override {
    if (!unattended_log().empty()) return String();
    std::vector<wchar_t> file(32768, L'\0');
    const std::wstring name = wstr(args.default_name);
    std::copy_n(name.begin(), std::min(name.size(), file.size() - 1), file.begin());
    // The filter's pairs are NUL-separated and the list ends with two NULs.
    std::wstring filter = wstr(args.filter);
    filter.push_back(L'\0');
    filter.push_back(L'\0');
    const std::wstring folder = wstr(args.default_folder), title = wstr(args.title),
                       ext = wstr(args.default_extension);
    OPENFILENAMEW ofn{};
    ofn.lStructSize = sizeof(ofn);
    ofn.hwndOwner = main_window();
    ofn.lpstrFilter = args.filter.empty() ? nullptr : filter.c_str();
    ofn.lpstrFile = file.data();
    ofn.nMaxFile = static_cast<DWORD>(file.size());
    ofn.lpstrInitialDir = folder.empty() ? nullptr : folder.c_str();
    ofn.lpstrTitle = title.empty() ? nullptr : title.c_str();
    ofn.lpstrDefExt = ext.empty() ? nullptr : ext.c_str();
    ofn.Flags = OFN_HIDEREADONLY | OFN_PATHMUSTEXIST | (args.must_exist ? OFN_FILEMUSTEXIST : 0);
    if (!GetOpenFileNameW(&ofn)) return String();
    return ustr(file.data(), wcsnlen(file.data(), file.size()));
  }

  std::unique_ptr<host::Progress> start_progress(int32_t, int32_t) override {
    IDispatch* app = nullptr;
    if (auto& xl = frame::session().XLApp) app = foreign_dispatch(xl.get());
    return std::make_unique<StatusBarProgress>(ComPtr<IDispatch>(app));
  }
};

// Writes a device-dependent bitmap as a 24-bit .bmp file.
bool write_bitmap(HBITMAP bitmap, const std::wstring& path) {
  BITMAP bm{};
  if (!GetObjectW(bitmap, sizeof(bm), &bm) || bm.bmWidth <= 0 || bm.bmHeight <= 0) return false;
  BITMAPINFOHEADER info{};
  info.biSize = sizeof(info);
  info.biWidth = bm.bmWidth;
  info.biHeight = bm.bmHeight;
  info.biPlanes = 1;
  info.biBitCount = 24;
  info.biCompression = BI_RGB;
  const DWORD stride = ((static_cast<DWORD>(bm.bmWidth) * 3 + 3) / 4) * 4;
  info.biSizeImage = stride * static_cast<DWORD>(bm.bmHeight);
  std::vector<BYTE> bits(info.biSizeImage);
  HDC dc = GetDC(nullptr);
  const int lines = GetDIBits(dc, bitmap, 0, static_cast<UINT>(bm.bmHeight), bits.data(),
                              reinterpret_cast<BITMAPINFO*>(&info), DIB_RGB_COLORS);
  ReleaseDC(nullptr, dc);
  if (lines == 0) return false;
  BITMAPFILEHEADER file{};
  file.bfType = 0x4D42;  // "BM"
  file.bfOffBits = sizeof(file) + sizeof(info);
  file.bfSize = file.bfOffBits + info.biSizeImage;
  FILE* out = _wfopen(path.c_str(), L"wb");
  if (!out) return false;
  bool ok = fwrite(&file, sizeof(file), 1, out) == 1 && fwrite(&info, sizeof(info), 1, out) == 1 &&
            fwrite(bits.data(), 1, bits.size(), out) == bits.size();
  return fclose(out) == 0 && ok;
}

class WindowsPlatform final : public host::Platform {
 public:
  ~WindowsPlatform() override {
    if (process_) CloseHandle(process_);
  }
  intptr_t find_window(const char* class_name, const char* title) override {
    return reinterpret_cast<intptr_t>(FindWindowA(class_name, title));
  }
  intptr_t foreground_window() override {
    return reinterpret_cast<intptr_t>(GetForegroundWindow());
  }
  bool set_foreground_window(intptr_t window) override {
    return SetForegroundWindow(reinterpret_cast<HWND>(window)) != FALSE;
  }
  host::ApplicationPtr running_application(const String& prog_id) override {
    CLSID clsid{};
    if (FAILED(CLSIDFromProgID(wide(prog_id), &clsid))) return nullptr;
    ComPtr<IUnknown> running;
    if (FAILED(GetActiveObject(clsid, nullptr, running.put())) || !running) return nullptr;
    auto app = running.as<IDispatch>(IID_IDispatch);
    return app ? adapt<host::Application>(app.get()) : nullptr;
  }
  bool start_process(const String& command_line) override {
    std::wstring cmd = wstr(command_line);
    STARTUPINFOW si{};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi{};
    if (!CreateProcessW(nullptr, cmd.data(), nullptr, nullptr, FALSE, NORMAL_PRIORITY_CLASS,
                        nullptr, nullptr, &si, &pi))
      return false;
    CloseHandle(pi.hThread);
    if (process_) CloseHandle(process_);
    process_ = pi.hProcess;
    return true;
  }
  bool wait_for_input_idle(int32_t milliseconds) override {
    if (!process_) throw Error(err::host_failure, "no started process to wait for");
    const DWORD waited = WaitForInputIdle(process_, static_cast<DWORD>(milliseconds));
    if (waited == WAIT_FAILED) throw Error(err::host_failure, "WaitForInputIdle failed");
    return waited != WAIT_TIMEOUT;
  }
  bool save_clipboard_bitmap(const String& file) override {
    if (!OpenClipboard(main_window())) return false;
    bool saved = false;
    if (auto bitmap = static_cast<HBITMAP>(GetClipboardData(CF_BITMAP)))
      saved = write_bitmap(bitmap, wstr(file));
    EmptyClipboard();
    CloseClipboard();
    return saved;
  }
  String app_data_folder() override {
    wchar_t path[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path)))
      return String();
    return ustr(path, wcsnlen(path, MAX_PATH));
  }

 private:
  HANDLE process_ = nullptr;
};

}  // namespace

std::shared_ptr<host::Ui> windows_ui() {
  return std::make_shared<WindowsUi>();
}
std::shared_ptr<host::Platform> windows_platform() {
  return std::make_shared<WindowsPlatform>();
}

}  // namespace qz::com
