// The system services of the Windows server: message boxes and dialogs owned by the
// application's main window, and the platform seam.
#pragma once

#include <memory>

#include "host/environment.hpp"

namespace qz::com {

/// Message boxes (MessageBoxW), the open-file dialog and progress in the application's status
/// bar, all owned by the application's main window. When the environment variable
/// QZXL_UNATTENDED names a file, nothing is shown: each message box is appended to that file
/// and answered with its first button, so unattended runs never wait for a person.
std::shared_ptr<host::Ui> windows_ui();

/// Windows, processes, the clipboard and folders through the system.
std::shared_ptr<host::Platform> windows_platform();

}  // namespace qz::com
