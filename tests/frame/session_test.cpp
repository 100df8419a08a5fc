#include <gtest/gtest.h>

#include "frame/session.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"
#include "support/fake_host.hpp"

namespace qz {
namespace {

// Records what the library does to the application's Undo and Redo commands.
class App : public test::UnsupportedApplication {
 public:
  std::vector<std::string> calls;
  void on_undo(const String& text, const String& proc) override {
    calls.push_back("OnUndo(" + to_utf8(text) + "," + to_utf8(proc) + ")");
  }
  void on_repeat(const String& text, const String& proc) override {
    calls.push_back("OnRepeat(" + to_utf8(text) + "," + to_utf8(proc) + ")");
  }
};

class Button : public test::UnsupportedCommandBarControl {
 public:
  explicit Button(String caption) : caption_(std::move(caption)) {}
  String caption() override { return caption_; }

 private:
  String caption_;
};

// The menu service as far as the session reads it: the two buttons' captions.
class Menu : public _iMenu {
 public:
  String undo_caption, redo_caption;
  String type_name() const override { return u"iMenu"; }
  host::CommandBarControlPtr UndoButton(bool) override {
    return std::make_shared<Button>(undo_caption);
  }
  host::CommandBarControlPtr RedoButton(bool) override {
    return std::make_shared<Button>(redo_caption);
  }
  host::CommandBarPtr MainMenuBar() override { return nullptr; }
  host::CommandBarPtr ChartMenuBar() override { return nullptr; }
  host::CommandBarPtr ActiveBar(bool) override { return nullptr; }
  host::CommandBarControlPtr FileMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr EditMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr ViewMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr InsertMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr FormatMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr ToolsMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr DataMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr WindowMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr HelpMenu(bool) override { return nullptr; }
  host::CommandBarControlPtr FileNewButton(bool) override { return nullptr; }
  host::CommandBarControlPtr CreatePopup(const Variant&, const Variant&, const Variant&,
                                         const Variant&, const Variant&, bool,
                                         const Variant&) override {
    return nullptr;
  }
  host::CommandBarControlPtr CreateBtn(const Variant&, const Variant&, const Variant&,
                                       const Variant&, const Variant&, const Variant&, bool,
                                       const Variant&, const Variant&) override {
    return nullptr;
  }
  host::CommandBarPtr CreateToolbar(const Variant&, const Variant&, bool, bool) override {
    return nullptr;
  }
};

// The undo service as far as the session uses it: emptying the two stacks.
class Undo : public _iUndoRedo {
 public:
  std::vector<std::string>& calls;
  explicit Undo(std::vector<std::string>& log) : calls(log) {}
  String type_name() const override { return u"iUndoRedo"; }
  void ClearUndoStack() override { calls.push_back("ClearUndoStack"); }
  void ClearRedoStack() override { calls.push_back("ClearRedoStack"); }
  void Subscribe(const String&, const ObjectPtr&) override {}
  void SetCustomUndo(const String&, const String&, const String&, const String&) override {}
  void CaptureGenericUndo(const host::RangePtr&, const String&) override {}
  void SetGenericUndo() override {}
  void SetQZUndo() override {}
  void ClearStacks() override {}
  void QZUndo() override {}
  void QZRedo() override {}
};

class ResetUndoRedo : public ::testing::Test {
 protected:
  void SetUp() override {
    create_iXLLibPublic();
    frame::Session& s = frame::session();
    s.XLApp = app;
    s.LibMenu = menu;
    s.LibUndoRedo = std::make_shared<Undo>(app->calls);
  }
  // Resets with these captions; returns what reached the application and the stacks.
  std::vector<std::string> reset(String undo, String redo) {
    menu->undo_caption = std::move(undo);
    menu->redo_caption = std::move(redo);
    app->calls.clear();
    frame::ResetXLUndoRedo();
    return app->calls;
  }
  test::SessionScope scope;
  std::shared_ptr<App> app = std::make_shared<App>();
  std::shared_ptr<Menu> menu = std::make_shared<Menu>();
};

using Calls = std::vector<std::string>;

TEST_F(ResetUndoRedo, GivesBothCommandsBackWhileTheyAreTheLibrarys) {
  EXPECT_EQ(reset(u"&Undo Text Entry (QZ)", u"&Redo Text Entry (QZ)"),
            (Calls{"ClearUndoStack", "ClearRedoStack", "OnUndo(,)", "OnRepeat(,)"}));
  EXPECT_EQ(reset(u" (QZ)", u"&Repeat Typing"),
            (Calls{"ClearUndoStack", "ClearRedoStack", "OnUndo(,)"}));
  EXPECT_EQ(reset(u"Can't Undo", u"&Redo AutoColor (QZ)"),
            (Calls{"ClearUndoStack", "ClearRedoStack", "OnRepeat(,)"}));
}

TEST_F(ResetUndoRedo, LeavesCommandsAloneThatAreNotTheLibrarys) {
  for (const char16_t* caption :
       {u"&Undo Typing", u"&Undo Entry (qz)", u"(QZ)", u"Undo (QZ) ", u"Undo(QZ)", u""})
    EXPECT_EQ(reset(caption, caption), (Calls{"ClearUndoStack", "ClearRedoStack"}))
        << to_utf8(caption);
}

TEST_F(ResetUndoRedo, StillEmptiesTheStacksWithoutMenusOrApplication) {
  frame::session().LibMenu = nullptr;
  EXPECT_EQ(reset(u"x (QZ)", u"y (QZ)"), (Calls{"ClearUndoStack", "ClearRedoStack"}));
  frame::session().LibMenu = menu;
  frame::session().XLApp = nullptr;
  EXPECT_EQ(reset(u"x (QZ)", u"y (QZ)"), (Calls{"ClearUndoStack", "ClearRedoStack"}));
  frame::session().LibUndoRedo = nullptr;
  EXPECT_EQ(reset(u"x (QZ)", u"y (QZ)"), Calls{});
}

class FindApplication : public ::testing::Test {
 protected:
  void SetUp() override { create_iXLLibPublic(); }
  test::SessionScope scope;
  std::shared_ptr<App> running = std::make_shared<App>();
  bool started = false;
};

TEST_F(FindApplication, UsesTheSessionsApplicationFirst) {
  auto mine = std::make_shared<App>();
  frame::session().XLApp = mine;
  scope.platform->running = running;
  EXPECT_EQ(frame::GetXLApp(started), mine);
  EXPECT_FALSE(started);
}

TEST_F(FindApplication, ThenARunningOne) {
  scope.platform->running = running;
  EXPECT_EQ(frame::GetXLApp(started), running);
  EXPECT_FALSE(started);
  EXPECT_TRUE(scope.platform->started.empty());
}

TEST_F(FindApplication, StartsOneAndGivesTheForegroundBack) {
  scope.platform->can_start = true;
  scope.platform->after_start = running;
  scope.platform->foreground = 55;
  EXPECT_EQ(frame::GetXLApp(started), running);
  EXPECT_TRUE(started);
  EXPECT_EQ(scope.platform->started, std::vector<String>{u"Excel"});
  EXPECT_EQ(scope.platform->waits, std::vector<int32_t>{60000});
  EXPECT_EQ(scope.platform->brought_to_front, std::vector<intptr_t>{55});
}

TEST_F(FindApplication, GivesNothingWhenTheStartFailsOrTheWaitRunsOut) {
  EXPECT_EQ(frame::GetXLApp(started), nullptr);
  EXPECT_TRUE(started);
  EXPECT_TRUE(scope.platform->waits.empty());

  // A timed-out wait skips the foreground and the second lookup, though one would succeed.
  started = false;
  scope.platform->can_start = true;
  scope.platform->after_start = running;
  scope.platform->foreground = 55;
  scope.platform->becomes_idle = false;
  EXPECT_EQ(frame::GetXLApp(started), nullptr);
  EXPECT_TRUE(started);
  EXPECT_TRUE(scope.platform->brought_to_front.empty());

  // A wait that fails is no timeout: the foreground goes back and the application is found.
  scope.platform->running = nullptr;
  scope.platform->wait_fails = true;
  EXPECT_EQ(frame::GetXLApp(started), running);
  EXPECT_EQ(scope.platform->brought_to_front, std::vector<intptr_t>{55});
}

class RefusingPlatform : public test::FakePlatform {
 public:
  intptr_t find_window(const char*, const char*) override {
    throw Error(err::host_failure, "no window station");
  }
};

TEST(MainExcelWindowHandle, IsWhatThePlatformFindsAndOtherwiseZero) {
  test::SessionScope scope;
  auto consts = create_iXLLibPublic()->NewConst();
  EXPECT_EQ(consts->MainExcelWindowHandle(), 0);
  scope.platform->windows["XLMAIN"] = 0x2A;
  scope.platform->windows["OTHER"] = 0x99;
  EXPECT_EQ(consts->MainExcelWindowHandle(), 0x2A);
  host::environment().platform = std::make_shared<RefusingPlatform>();
  EXPECT_EQ(consts->MainExcelWindowHandle(), 0);
  host::environment().platform = nullptr;
  EXPECT_EQ(consts->MainExcelWindowHandle(), 0);
}

}  // namespace
}  // namespace qz
