// The user's regional settings on Windows: the separators, the currency symbol and its
// place, the negative forms and the short date, and the automation runtime's own parsers of
// number and date text, all for the user's default locale.
#pragma once

#include "qzxl/convert.hpp"

namespace qz::com {

/// The user's locale as the conversions read it (GetLocaleInfoW with LOCALE_USER_DEFAULT),
/// with the runtime's VarR8FromStr and VarDateFromStr as its number and date readers, so that
/// IsNumeric and IsDate answer as they do in the user's application. A setting that cannot be
/// read keeps its en-US value.
Locale user_locale();

}  // namespace qz::com
