// The user's regional settings on Linux, read from ICU's locale data: the separators, the
// currency symbol and where it stands, the negative forms and the short-date pattern, as the
// conversions' Locale holds them.
#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "qzxl/convert.hpp"

namespace qz::engine::locale {

/// The settings of a named locale: "de-DE", "de_DE", "de_DE.UTF-8", "fr_FR@euro"; "C" and
/// "POSIX" are en-US. Nothing for a name that is not a locale name or whose language the
/// locale data does not know.
std::optional<Locale> from_name(std::string_view name);

/// Reads an environment variable; nothing or empty when it is not set.
using Getenv = std::function<const char*(const char*)>;

/// The user's locale as the environment names it, with the usual precedence: LC_ALL over
/// everything, then each category's own variable (numbers from LC_NUMERIC, the currency from
/// LC_MONETARY, dates and times from LC_TIME), then LANG. A category named by nothing, or by
/// a name `from_name` refuses, takes en-US's settings.
Locale from_environment(const Getenv& getenv);

}  // namespace qz::engine::locale
