// qzxl settings: reads and writes AutoColor's settings in the user's store, through the
// library's own getters and setters, so the tool and every client add-in see one set.
#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "common.hpp"
#include "qzxl/convert.hpp"

namespace qzcli {

namespace {

using qz::String;
using qz::Variant;

struct Setting {
  const char* name;  // the value name in the store
  bool is_colour;
  bool (qz::_iAutoColor::*get_switch)();
  bool (qz::_iAutoColor::*set_switch)(const Variant&);
  int32_t (qz::_iAutoColor::*get_colour)();
  int32_t (qz::_iAutoColor::*set_colour)(const Variant&);
};

using A = qz::_iAutoColor;
const Setting kSettings[] = {
    {"On", false, &A::AutoColorOn, &A::SetAutoColorOn, nullptr, nullptr},
    {"Hyperlinks", false, &A::AutoColorHyperlinks, &A::SetAutoColorHyperlinks, nullptr, nullptr},
    {"Text", false, &A::AutoColorText, &A::SetAutoColorText, nullptr, nullptr},
    {"Dates", false, &A::AutoColorDates, &A::SetAutoColorDates, nullptr, nullptr},
    {"InputColor", true, nullptr, nullptr, &A::InputColor, &A::SetInputColor},
    {"PartialInputColor", true, nullptr, nullptr, &A::PartialInputColor, &A::SetPartialInputColor},
    {"FormulaColor", true, nullptr, nullptr, &A::FormulaColor, &A::SetFormulaColor},
    {"WksLinkColor", true, nullptr, nullptr, &A::WksLinkColor, &A::SetWksLinkColor},
    {"WkbLinkColor", true, nullptr, nullptr, &A::WkbLinkColor, &A::SetWkbLinkColor},
    {"HyperlinkColor", true, nullptr, nullptr, &A::HyperlinkColor, &A::SetHyperlinkColor},
    {"DummyNumberColor", true, nullptr, nullptr, &A::DummyNumberColor, &A::SetDummyNumberColor},
};

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

const Setting& find_setting(const std::string& name) {
  for (const auto& s : kSettings)
    if (lower(s.name) == lower(name)) return s;
  std::string known;
  for (const auto& s : kSettings) known += (known.empty() ? "" : ", ") + std::string(s.name);
  throw Failure(fmt::format("no setting \"{}\" (settings: {})", name, known));
}

std::string shown(qz::_iAutoColor& ac, const Setting& s) {
  if (s.is_colour) return format_colour((ac.*s.get_colour)());
  return (ac.*s.get_switch)() ? "true" : "false";
}

nlohmann::ordered_json as_json(qz::_iAutoColor& ac, const Setting& s) {
  if (s.is_colour) return format_colour((ac.*s.get_colour)());
  return (ac.*s.get_switch)();
}

struct Options {
  std::string name;
  std::string value;
  bool json = false;
};

void print(qz::_iAutoColor& ac, const std::vector<const Setting*>& which, bool json) {
  if (json) {
    nlohmann::ordered_json j = nlohmann::ordered_json::object();
    for (const auto* s : which) j[s->name] = as_json(ac, *s);
    fmt::print("{}\n", j.dump(2));
    return;
  }
  Table table({"setting", "value"});
  for (const auto* s : which) table.add({s->name, shown(ac, *s)});
  table.print(stdout);
}

std::vector<const Setting*> chosen(const std::string& name) {
  std::vector<const Setting*> out;
  if (name.empty()) {
    for (const auto& s : kSettings) out.push_back(&s);
  } else {
    out.push_back(&find_setting(name));
  }
  return out;
}

}  // namespace

Command make_settings_command(CLI::App& parent) {
  static Options o;
  static CLI::App *get, *set, *reset;
  auto* cmd = add_command(parent, "settings",
                          "Read and change AutoColor's settings (shared with the add-ins)");
  cmd->require_subcommand(1);
  get = add_command(*cmd, "get", "Show every setting, or one");
  get->add_option("NAME", o.name, "A setting, such as InputColor");
  get->add_flag("--json", o.json, "Print as JSON");
  set = add_command(*cmd, "set", "Change a setting");
  set->add_option("NAME", o.name, "A setting, such as InputColor")->required();
  set->add_option("VALUE", o.value, "A colour as #RRGGBB, or true/false for a switch")->required();
  reset = add_command(*cmd, "reset", "Put every setting, or one, back to its default");
  reset->add_option("NAME", o.name, "A setting, such as InputColor");
  return {cmd, [] {
            // Parse the value before the store is touched.
            std::optional<Variant> value;
            if (set->parsed()) {
              const Setting& s = find_setting(o.name);
              if (s.is_colour) {
                const auto colour = parse_colour(o.value);
                if (!colour)
                  throw Failure(fmt::format("\"{}\" is no colour (write #RRGGBB)", o.value));
                value = Variant(*colour);
              } else {
                const std::string v = lower(o.value);
                if (v == "true" || v == "on" || v == "yes" || v == "1")
                  value = Variant(true);
                else if (v == "false" || v == "off" || v == "no" || v == "0")
                  value = Variant(false);
                else
                  throw Failure(
                      fmt::format("\"{}\" is no switch value (write true or false)", o.value));
              }
            }
            const auto which = chosen(o.name);
            Session session;
            auto ac = session.lib->NewAutoColor();
            if (set->parsed()) {
              const Setting& s = *which.front();
              if (s.is_colour)
                ((*ac).*s.set_colour)(*value);
              else
                ((*ac).*s.set_switch)(*value);
            } else if (reset->parsed()) {
              for (const auto* s : which) {
                // A missing argument stands for the default.
                if (s->is_colour)
                  ((*ac).*s->set_colour)(Variant::missing());
                else
                  ((*ac).*s->set_switch)(Variant::missing());
              }
            }
            print(*ac, which, o.json);
            return 0;
          }};
}

}  // namespace qzcli
