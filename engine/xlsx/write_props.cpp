// The custom document properties: the part is patched property by property, so those that did
// not change keep their elements as the file had them.
#include <cmath>
#include <cstdio>
#include <map>
#include <set>

#include "engine/xlsx/common.hpp"
#include "engine/xlsx/writer.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"
#include "vocab/dates.hpp"

namespace qz::engine::xlsx {

namespace {

constexpr const char* kCtCustom =
    "application/vnd.openxmlformats-officedocument.custom-properties+xml";

double step_double(const Variant& v) {
  try {
    return qz::to_double(v);
  } catch (const Error&) {
    return 0;
  }
}

std::string filetime_text(double automation) {
  double whole = std::floor(automation);
  const dates::Civil c = dates::civil_from_serial(static_cast<int64_t>(whole));
  long secs = std::lround((automation - whole) * 86400);
  if (secs >= 86400) secs = 86399;
  char buf[96];
  std::snprintf(buf, sizeof buf, "%04ld-%02d-%02dT%02ld:%02ld:%02ldZ", static_cast<long>(c.year),
                c.month, c.day, secs / 3600, (secs / 60) % 60, secs % 60);
  return buf;
}

}  // namespace

void write_custom_props(PackageWriter& w) {
  if (w.book.props.size() == w.state->props.size()) {
    bool same = true;
    for (size_t i = 0; i < w.book.props.size() && same; ++i)
      same = w.book.props[i].name == w.state->props[i].name &&
             w.book.props[i].type == w.state->props[i].type &&
             w.book.props[i].value == w.state->props[i].value;
    if (same) return;
  }
  std::string part = w.state->custom_props_part;
  std::string text = part.empty() ? std::string() : w.source_text(part);
  if (text.empty()) {
    if (part.empty()) {
      part = w.state->custom_props_part = "docProps/custom.xml";
      w.add_rel("", std::string(kRelDoc) + "/custom-properties", part, false);
      w.set_content_type(part, kCtCustom);
    }
    text = std::string(kDecl) +
           "<Properties "
           "xmlns=\"http://schemas.openxmlformats.org/officeDocument/2006/custom-properties\" "
           "xmlns:vt=\"http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes\"/>";
  }
  pugi::xml_document doc;
  w.parse(part, text, doc);
  pugi::xml_node root = doc.document_element();
  std::string vt = "vt:";
  for (pugi::xml_attribute a : root.attributes()) {
    std::string_view n = a.name();
    if (n.starts_with("xmlns:") && std::string_view(a.value()).ends_with("docPropsVTypes"))
      vt = std::string(n.substr(6)) + ":";
  }
  std::map<String, pugi::xml_node> existing;
  int64_t max_pid = 1;
  for (pugi::xml_node n : root.children()) {
    existing[from_utf8(n.attribute("name").value())] = n;
    max_pid = std::max<int64_t>(max_pid, parse_int(n.attribute("pid").value()).value_or(1));
  }
  std::map<String, const CustomProperty*> loaded;
  for (const auto& p : w.state->props) loaded[p.name] = &p;
  std::set<String> keep;
  for (const CustomProperty& p : w.book.props) {
    keep.insert(p.name);
    auto old = loaded.find(p.name);
    pugi::xml_node n;
    if (auto e = existing.find(p.name); e != existing.end()) {
      n = e->second;
      if (old != loaded.end() && old->second->type == p.type && old->second->value == p.value)
        continue;
      while (n.first_child()) n.remove_child(n.first_child());
    } else {
      n = root.append_child((prefix_of(root.name()) + "property").c_str());
      n.append_attribute("fmtid").set_value("{D5CDD505-2E9C-101B-9397-08002B2CF9AE}");
      n.append_attribute("pid").set_value(std::to_string(++max_pid).c_str());
      n.append_attribute("name").set_value(to_utf8(p.name).c_str());
    }
    std::string tag, value;
    const Variant& v = p.value;
    switch (p.type) {
      case 1: {
        double d = step_double(v);
        if (d == std::floor(d) && d >= INT32_MIN && d <= INT32_MAX) {
          tag = "i4";
          value = std::to_string(static_cast<int64_t>(d));
        } else {
          tag = "r8";
          value = double_text(d);
        }
        break;
      }
      case 2:
        tag = "bool";
        value = (v.is_bool() ? v.boolean() : step_double(v) != 0) ? "true" : "false";
        break;
      case 3:
        tag = "filetime";
        value = filetime_text(v.is_date() ? v.date().serial : step_double(v));
        break;
      case 5:
        tag = "r8";
        value = double_text(step_double(v));
        break;
      default:
        tag = "lpwstr";
        value = v.is_string() ? to_utf8(v.str()) : to_utf8(qz::to_string(v));
        break;
    }
    n.append_child((vt + tag).c_str()).text().set(value.c_str());
  }
  for (auto& [name, n] : existing)
    if (!keep.count(name)) root.remove_child(n);
  w.put(part, serialize(doc));
  if (!w.in_source(part)) w.add_new(part);
}

}  // namespace qz::engine::xlsx
