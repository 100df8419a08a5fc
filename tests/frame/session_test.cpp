#include <gtest/gtest.h>

#include "frame/session.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"
#include "support/fake_host.hpp"

namespace qz {
namespace {

TEST(QZCaption, OnlyTheMarkAtTheVeryEndMakesACommandTheLibrarys) {
  for (const char16_t* caption : {u"&Undo Text Entry (QZ)", u" (QZ)"})
    EXPECT_TRUE(frame::is_qz_caption(caption)) << to_utf8(caption);
  for (const char16_t* caption :
       {u"&Undo Typing", u"&Undo Entry (qz)", u"(QZ)", u"Undo (QZ) ", u"Undo(QZ)", u""})
    EXPECT_FALSE(frame::is_qz_caption(caption)) << to_utf8(caption);
}

TEST(ResetUndoRedo, EmptiesTheStacksEvenWithoutMenusOrApplication) {
  test::SessionScope scope;
  String name;
  create_iXLLibPublic()->NewPublic(name);
  frame::Session& s = frame::session();
  s.UndoStack->push_back(nullptr);
  s.RedoStack->push_back(nullptr);
  s.LibMenu = nullptr;
  frame::ResetXLUndoRedo();
  EXPECT_TRUE(s.UndoStack->empty() && s.RedoStack->empty());
}

using App = test::UnsupportedApplication;

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
