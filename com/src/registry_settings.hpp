// The settings store of the Windows server: the registry of the current user.
#pragma once

#include <memory>

#include "vblib/vblib.hpp"

namespace qz::com {

/// Settings under HKEY_CURRENT_USER\\Software\\Quazel\\QZXLLib\\<section>, one REG_SZ value per
/// setting, so that every client of every process sees the same values and they persist.
std::shared_ptr<vblib::SettingsBackend> registry_settings_backend();

}  // namespace qz::com
