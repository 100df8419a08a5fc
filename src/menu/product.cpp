// Client products: registration under a code name, the callback object the undo manager and
// AutoColor reach the client through, the product's menu, and the end of the session when
// the last product leaves.
#include "menu/product.hpp"

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz {

namespace {

bool flag(const Variant& v) {
  return !v.is_missing() && value_or(false, [&] { return to_bool(v); });
}

// The menu bar a product's menu lives on.
host::CommandBarPtr product_bar(bool chart) {
  return require(require(frame::session().LibMenu)->ActiveBar(chart));
}

}  // namespace

ObjectPtr iXLLibProduct::UndoRedoIF() {
  return undo_redo_if_;
}

void iXLLibProduct::putref_UndoRedoIF(const ObjectPtr& vUndoRedoIF) {
  undo_redo_if_ = vUndoRedoIF;
}

void iXLLibProduct::Terminate() {
  auto& s = frame::session();
  step([&] {
    if (require(s.Products)->contains(code_name_)) s.Products->remove(code_name_);
  });
  // The last client to leave ends the session: the application gets its Undo and Redo back
  // and every object the library held is let go, so the next client starts afresh.
  if (value_or(true, [&] { return require(s.Products)->count() == 0; })) {
    frame::ResetXLUndoRedo();
    frame::ReleaseGlobals();
  }
}

void iXLLibProduct::put_CodeName(const String& vCodeName, const Variant& vRepresentsProduct) {
  code_name_ = vCodeName;
  if (!flag(vRepresentsProduct)) return;
  // The newest registration under a code name wins.
  step([&] {
    auto& products = *require(frame::session().Products);
    if (products.contains(vCodeName)) products.remove(vCodeName);
    products.add(vCodeName, std::static_pointer_cast<_iXLLibProduct>(shared_from_this()));
  });
}

String iXLLibProduct::CodeName(const Variant&) {
  return code_name_;
}

void iXLLibProduct::put_Name(const String& vName) {
  name_ = vName;
}

String iXLLibProduct::Name() {
  return name_;
}

String iXLLibProduct::MenuMark() const {
  return String(kMsgBoxTitle) + u" " + name_;
}

host::CommandBarControlPtr iXLLibProduct::CreateProductMenu(const Variant& vCaption,
                                                            bool vTemporary,
                                                            const Variant& vForChart) {
  const bool chart = flag(vForChart);
  const String mark = MenuMark();
  // A product makes its menu once: one left by an earlier start goes first, so that
  // ProductMenu never has two to choose from.
  for (int guard = 0; guard < 100; ++guard) {
    host::CommandBarControlPtr old = ProductMenu(Variant(chart));
    if (!old || !step([&] { old->delete_(); })) break;
  }
  host::CommandBarControlPtr help;
  step([&] { help = require(frame::session().LibMenu)->HelpMenu(chart); });
  host::CommandBarControlPtr menu;
  step([&] {
    host::ControlAddArgs args;
    args.type = Variant(host::mso::ControlPopup);
    if (help) args.before = Variant(help->index());
    args.temporary = Variant(vTemporary);
    menu = require(product_bar(chart)->controls())->add(args);
  });
  if (!menu) return nullptr;
  const bool captioned =
      !vCaption.is_missing() && !value_or(String(), [&] { return to_string(vCaption); }).empty();
  step([&] { menu->set_caption(captioned ? to_string(vCaption) : mark); });
  step([&] { menu->set_tag(mark); });
  return menu;
}

host::CommandBarControlPtr iXLLibProduct::ProductMenu(const Variant& vForChart) {
  const String mark = MenuMark();
  return value_or(host::CommandBarControlPtr(), [&]() -> host::CommandBarControlPtr {
    auto controls = require(product_bar(flag(vForChart))->controls());
    const int32_t n = controls->count();
    for (int32_t i = 1; i <= n; ++i) {
      host::CommandBarControlPtr c = controls->item(Variant(i));
      if (value_or(String(), [&] { return c->tag(); }) == mark) return c;
    }
    return nullptr;
  });
}

}  // namespace qz
