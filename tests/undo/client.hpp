// A client add-in at work in the engine: the library's session over a fresh application with
// one workbook, the client's macros registered with the application as an add-in's module
// would define them, its product registered with a callback object, and a person at the
// keyboard.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "engine/host/engine.hpp"
#include "engine/host/user.hpp"
#include "frame/session.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"
#include "support/fake_host.hpp"
#include "undo/undo_unit.hpp"

namespace qz::test {

/// The object a client hands the library as its product's UndoRedoIF: it runs the client's
/// own undo and redo macros and answers the AutoColor veto.
class ClientCallback : public Object {
 public:
  String type_name() const override { return u"cUndoRedoIF"; }
  Variant invoke(StringView name, Invoke, std::span<Variant> args) override {
    if (same_member(name, u"RunMacro")) {
      ran.push_back(to_string(args[0]));
      if (watch) modes.push_back(watch->calculation());
      return Variant();
    }
    if (same_member(name, u"DoNotAutoColor")) {
      colours_asked.push_back(to_long(args[0]));
      return Variant(keep_colour);
    }
    return Object::invoke(name, Invoke::Method, args);
  }
  bool has_member(StringView name) const override {
    return same_member(name, u"RunMacro") || same_member(name, u"DoNotAutoColor");
  }

  std::vector<String> ran;
  std::vector<int32_t> colours_asked;
  bool keep_colour = false;
  /// When set, the calculation mode of this application as each macro ran.
  host::ApplicationPtr watch;
  std::vector<int32_t> modes;
};

/// The application as the library sees it, noting the calculation mode when the library
/// takes an entry back out (`Undo`) and when it switches screen updating around writing
/// cells back.
class Watched : public ForwardingApplication {
 public:
  using ForwardingApplication::ForwardingApplication;
  void undo() override {
    modes.push_back(inner->calculation());
    inner->undo();
  }
  void set_screen_updating(bool on) override {
    modes.push_back(inner->calculation());
    inner->set_screen_updating(on);
  }
  std::vector<int32_t> modes;
};

class ClientTest : public ::testing::Test {
 protected:
  ClientTest() {
    String name;
    lib->NewPublic(name);
    lib->InitXL(app);
    ac = lib->NewAutoColor();
    undo = lib->NewUndoRedo();
    menu = lib->NewMenu();
    // The client's module: each macro only calls the library method of its name.
    macro(u"QZUndo", [this] { undo->QZUndo(); });
    macro(u"QZRedo", [this] { undo->QZRedo(); });
    macro(u"SetQZUndo", [this] { undo->SetQZUndo(); });
    macro(u"mDOM.RunAutoColor", [this] { ac->RunAutoColor(); });
    macro(u"mDOM.ToggleAutoColor", [this] { ac->ToggleAutoColor(); });
    macro(u"mDOM.AutoColorSelection", [this] { ac->AutoColorRange(); });
    macro(u"mDOM.AutoColorSheet", [this] { ac->AutoColorSheet(); });
    macro(u"mDOM.AutoColorWorkbook", [this] { ac->AutoColorWorkbook(); });
    macro(u"mDOM.CtrlEnter", [this] { ac->UpdateCtrlEnter(); });
    engine::on_key(app, u"^~", u"mDOM.CtrlEnter");
  }

  void macro(const char16_t* name, std::function<void()> body) {
    engine::register_macro(app, name, [body](std::span<Variant>) {
      body();
      return Variant();
    });
  }

  /// Registers a product with its callback, as a client does at start-up.
  iXLLibProductPtr start_product(const char16_t* code, const char16_t* friendly) {
    auto product = lib->NewProduct(code, Variant(true), Variant(friendly));
    undo->Subscribe(code, callback);
    return product;
  }

  void define(const String& text, const String& refers_to) {
    host::NameAddArgs args;
    args.name = Variant(text);
    args.refers_to = Variant(refers_to);
    wb->names()->add(args);
  }
  host::RangePtr r(const char* address) { return ws->range(Variant(u16(address))); }
  int32_t colour(const char* address) { return to_long(r(address)->font()->color()); }
  String formula(const char* address) { return r(address)->formula(); }
  /// A stack's captions, oldest first.
  static std::vector<std::string> texts(const std::shared_ptr<frame::UnitStack>& stack) {
    std::vector<std::string> out;
    if (stack)
      for (const auto& unit : *stack) out.push_back(to_utf8(unit->UndoText));
    return out;
  }
  static std::vector<std::string> undo_texts() { return texts(frame::session().UndoStack); }
  static std::vector<std::string> redo_texts() { return texts(frame::session().RedoStack); }
  std::string undo_caption() const { return to_utf8(user.undo_caption()); }
  std::string redo_caption() const { return to_utf8(user.redo_caption()); }

  SessionScope scope;  // first: the session is fresh before the factory loads it
  host::ApplicationPtr app = engine::create_application();
  host::WorkbookPtr wb = app->workbooks()->add();
  host::WorksheetPtr ws = wb->worksheets()->item(Variant(int32_t{1}));
  iXLLibPublicPtr lib = create_iXLLibPublic();
  iAutoColorPtr ac;
  iUndoRedoPtr undo;
  iMenuPtr menu;
  std::shared_ptr<ClientCallback> callback = std::make_shared<ClientCallback>();
  engine::User user{app};
};

}  // namespace qz::test
