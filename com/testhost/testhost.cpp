// QZXLTestHost.dll: the class QZXLTest.Engine hands out applications of the embedded engine
// as automation objects (every host member by the application's name, named arguments,
// For Each), so that a script can give QZXLLib an Application to drive and then check what
// the library did to the workbook. A script also plays the person at the keyboard (typing,
// Ctrl+Enter, Undo, Redo, clicks) and the add-in whose macros the application runs by name.
// A few helpers show how values arrive over COM, and a clock times calls.
#include <windows.h>

#include <mutex>

#include "com/src/convert.hpp"
#include "com/src/core.hpp"
#include "com/src/disp_object.hpp"
#include "com/src/errors.hpp"
#include "com/src/module_support.hpp"
#include "com/src/object_dispatch.hpp"
#include "com/src/user_locale.hpp"
#include "engine/host/engine.hpp"
#include "engine/host/user.hpp"
#include "host/dispatch.hpp"
#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {
namespace {

// The pieces of a formula as a script can compare them: "piece@start:flags" joined by "|",
// the flags being the letters of the piece's true Booleans (Operator, Function, Range,
// object Key, Value, Simple text). Each record arrives as the array of its fields.
String describe_pieces(const Variant& v) {
  if (!v.is_array()) {
    String shown = u"(";
    shown += type_name(v);
    shown += u')';
    return shown;
  }
  String out;
  for (const Variant& piece : v.array().items) {
    if (!out.empty()) out += u"|";
    if (!piece.is_array() || piece.array().items.size() != 8) {
      out += u"?";
      continue;
    }
    const auto& f = piece.array().items;
    out += to_string(f[0]) + u"@" + to_string(f[1]) + u":";
    const char16_t letters[] = u"OFRKVS";
    for (size_t i = 0; i < 6; ++i)
      if (to_bool(f[i + 2])) out += letters[i];
  }
  return out;
}

// The engine's application behind an argument, or error 13 for anything else.
host::ApplicationPtr application(const Variant& v) {
  auto app = v.as<host::Application>();
  if (!app) throw Error(err::type_mismatch, "Type mismatch: an application of the engine");
  return app;
}

// A person at an application's keyboard. Each action runs what the application runs around
// it (OnEntry, OnKey, OnUndo, OnRepeat, OnTime, OnAction), so those macros call back into the
// script while the action is still under way.
class Person final : public Object {
 public:
  explicit Person(host::ApplicationPtr app) : user_(std::move(app)) {}
  String type_name() const override { return u"QZXLTestPerson"; }

  Variant invoke(StringView name, Invoke, std::span<Variant> args) override {
    auto text = [&](size_t i) -> String {
      if (i >= args.size() || args[i].is_missing())
        throw Error(err::wrong_arguments, "Argument not optional");
      return to_string(args[i]);
    };
    if (same_member(name, u"Select")) {
      user_.select(text(0));
    } else if (same_member(name, u"Type")) {
      // Type(text) into the active cell, or Type(address, text).
      if (args.size() >= 2 && !args[1].is_missing())
        user_.type(text(0), text(1));
      else
        user_.type(text(0));
    } else if (same_member(name, u"CtrlEnter")) {
      user_.ctrl_enter(text(0));
    } else if (same_member(name, u"PressUndo")) {
      user_.press_undo();
    } else if (same_member(name, u"PressRedo")) {
      user_.press_redo();
    } else if (same_member(name, u"Idle")) {
      user_.idle();
    } else if (same_member(name, u"Click")) {
      auto control = args.empty() ? nullptr : args[0].as<host::CommandBarControl>();
      if (!control) throw Error(err::type_mismatch, "Type mismatch: a command bar control");
      user_.click(control);
    } else if (same_member(name, u"UndoCaption")) {
      return Variant(user_.undo_caption());
    } else if (same_member(name, u"RedoCaption")) {
      return Variant(user_.redo_caption());
    } else {
      return Object::invoke(name, Invoke::Method, args);
    }
    return Variant();
  }

  bool has_member(StringView name) const override {
    for (const char16_t* m : {u"Select", u"Type", u"CtrlEnter", u"PressUndo", u"PressRedo", u"Idle",
                              u"Click", u"UndoCaption", u"RedoCaption"})
      if (same_member(name, m)) return true;
    return false;
  }

 private:
  engine::User user_;
};

class TestEngine final : public Object {
 public:
  String type_name() const override { return u"QZXLTestEngine"; }

  Variant invoke(StringView name, Invoke, std::span<Variant> args) override {
    auto arg = [&](size_t i) -> Variant& {
      if (i >= args.size()) throw Error(err::wrong_arguments, "Argument not optional");
      return args[i];
    };
    if (same_member(name, u"NewApplication")) {
      engine::ApplicationOptions options;
      // A fixed clock: 14 November 2026 09:30, so that NOW() and TODAY() are repeatable.
      options.clock = [] { return 46340.395833333336; };
      // The application shows and reads values in the user's regional settings.
      set_locale(user_locale());
      return Variant(ObjectPtr(engine::create_application(options)));
    }
    if (same_member(name, u"NewUser"))
      return Variant(ObjectPtr(std::make_shared<Person>(application(arg(0)))));
    if (same_member(name, u"RegisterMacro")) {
      // RegisterMacro(app, macro, object, method): the add-in's module, whose macro `macro`
      // is `method` of a script's object.
      auto app = application(arg(0));
      ObjectPtr target = arg(2).as<Object>();
      if (!target) throw Error(err::object_required, "Object required");
      const String method = to_string(arg(3));
      engine::register_macro(app, to_string(arg(1)),
                             [target, method](std::span<Variant> macro_args) {
                               return target->invoke(method, Invoke::Method, macro_args);
                             });
      return Variant();
    }
    if (same_member(name, u"OnKey")) {
      engine::on_key(application(arg(0)), to_string(arg(1)), to_string(arg(2)));
      return Variant();
    }
    if (same_member(name, u"TypeOf")) return Variant(qz::type_name(arg(0)));
    if (same_member(name, u"Echo")) return arg(0);
    if (same_member(name, u"Assign")) {
      arg(0) = arg(1);
      return Variant();
    }
    if (same_member(name, u"Pieces")) return Variant(describe_pieces(arg(0)));
    if (same_member(name, u"Clock")) {
      // Seconds from a fixed point, to the microsecond: timings in scripts.
      LARGE_INTEGER now, frequency;
      QueryPerformanceCounter(&now);
      QueryPerformanceFrequency(&frequency);
      return Variant(static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart));
    }
    if (same_member(name, u"LowerBound")) return Variant(arg(0).array().lower);
    return Object::invoke(name, Invoke::Method, args);
  }

  bool has_member(StringView name) const override {
    for (const char16_t* m : {u"NewApplication", u"NewUser", u"RegisterMacro", u"OnKey", u"TypeOf",
                              u"Echo", u"Assign", u"Pieces", u"LowerBound", u"Clock"})
      if (same_member(name, m)) return true;
    return false;
  }
};

void enter_module() {
  static std::once_flag once;
  std::call_once(once, [] {
    object_bridge().import_object = [](IDispatch* d) -> ObjectPtr {
      if (auto own = object_behind(d)) return own;
      return std::make_shared<DispObject>(ComPtr<IDispatch>(d));
    };
    object_bridge().export_object = [](const ObjectPtr& o) -> IDispatch* {
      if (IDispatch* d = foreign_dispatch(o.get())) {
        d->AddRef();
        return d;
      }
      return dispatch_for(o);
    };
    auto& members = object_members();
    members.invoke = host::invoke_member;
    members.has = host::has_member;
    members.param_index = host::param_index;
    members.items = host::items_of;
    members.rows_as_block = [](const ObjectPtr& o, StringView name) {
      return (same_member(name, u"Value") || same_member(name, u"_Default")) &&
             std::dynamic_pointer_cast<host::Range>(o) != nullptr;
    };
  });
}

HRESULT create_engine(REFIID iid, void** out) {
  enter_module();
  IDispatch* d = dispatch_for(std::make_shared<TestEngine>());
  HRESULT hr = d->QueryInterface(iid, out);
  d->Release();
  return hr;
}

constexpr GUID kClsidEngine = {
    0xCD6B2A48, 0x42AB, 0x4E4D, {0xA7, 0x16, 0x03, 0xE2, 0x96, 0x96, 0x8E, 0xB7}};
constexpr ClassEntry kClasses[] = {
    {kClsidEngine, L"QZXLTest.Engine", L"QZXLLib test engine", create_engine},
};

}  // namespace

const DllClasses kDllClasses{kClasses, nullptr, nullptr, nullptr};

}  // namespace qz::com
