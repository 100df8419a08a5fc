#include "frame/consts.hpp"

#include "frame/session.hpp"

namespace qz {

int32_t iXLLibConst::MainExcelWindowHandle() {
  return frame::GetXLMainWindow();
}

}  // namespace qz
