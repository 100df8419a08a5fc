#include "com/src/disp_object.hpp"

namespace qz::com {

const String& DispCore::foreign_type_name() const {
  if (!type_name_known_) {
    type_name_ = late_.type_name();
    type_name_known_ = true;
  }
  return type_name_;
}

}  // namespace qz::com
