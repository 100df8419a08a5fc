// The library's undo and redo as a person meets them: through the application's Undo and Redo
// commands, with the client's macros run by the application.
#include "undo/client.hpp"

#include <gmock/gmock.h>

namespace qz::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class GenericUnit : public ClientTest {
 protected:
  // A1 italic text with a superscript second character; A2 a formula shown with two decimals.
  void set_up_cells() {
    r("A1")->set_formula(u"x2");
    r("A1")->font()->set_italic(Variant(true));
    r("A1")
        ->characters(Variant(int32_t{2}), Variant(int32_t{1}))
        ->font()
        ->set_superscript(Variant(true));
    r("A2")->set_formula(u"=1+1");
    r("A2")->set_number_format(u"0.00");
  }
  bool superscript(const char* address, int32_t at) {
    return r(address)->characters(Variant(at), Variant(int32_t{1}))->font()->superscript() ==
           Variant(true);
  }
};

TEST_F(GenericUnit, UndoPutsCellsBackAndRedoBringsTheChangeAgain) {
  set_up_cells();
  r("A2")->font()->set_color_index(Variant(int32_t{3}));
  undo->CaptureGenericUndo(r("A1:A2"), u"Edit");
  r("A2")->font()->set_color_index(Variant(int32_t{5}));
  r("A1")->set_formula(u"changed");
  r("A1")->font()->set_italic(Variant(false));
  r("A2")->set_formula(u"=5");
  r("A2")->set_number_format(u"General");
  undo->SetGenericUndo();
  EXPECT_EQ(undo_caption(), "&Undo Edit (QZ)");
  EXPECT_EQ(redo_caption(), "Can't &Redo");

  user.press_undo();
  EXPECT_EQ(formula("A1"), u"x2");
  EXPECT_EQ(r("A1")->font()->italic(), Variant(true));
  EXPECT_TRUE(superscript("A1", 2));
  EXPECT_FALSE(superscript("A1", 1));
  EXPECT_EQ(formula("A2"), u"=1+1");
  EXPECT_EQ(r("A2")->number_format(), Variant(u"0.00"));
  EXPECT_EQ(r("A2")->font()->color_index(), Variant(int32_t{3}));
  EXPECT_EQ(app->calculation(), host::xl::CalculationAutomatic);
  EXPECT_EQ(redo_caption(), "&Redo Edit (QZ)");
  EXPECT_EQ(undo_caption(), "Can't &Undo");

  user.press_redo();
  EXPECT_EQ(formula("A1"), u"changed");
  EXPECT_EQ(r("A1")->font()->italic(), Variant(false));
  EXPECT_EQ(formula("A2"), u"=5");
  EXPECT_EQ(r("A2")->number_format(), Variant(u"General"));
  EXPECT_EQ(undo_caption(), "&Undo Edit (QZ)");
  EXPECT_EQ(redo_caption(), "Can't &Redo");

  // Undo again after a redo restores the same first state.
  user.press_undo();
  EXPECT_EQ(formula("A1"), u"x2");
  EXPECT_EQ(formula("A2"), u"=1+1");
}

TEST_F(GenericUnit, CellsGoBackWhileRecalculationWaitsAndTheModeIsKept) {
  auto watched = std::make_shared<Watched>(app);
  lib->InitXL(watched);
  app->set_calculation(host::xl::CalculationSemiautomatic);
  undo->CaptureGenericUndo(r("A1"), u"Edit");
  r("A1")->set_formula(u"x");
  undo->SetGenericUndo();
  user.press_undo();
  EXPECT_EQ(app->calculation(), host::xl::CalculationSemiautomatic);
  user.press_redo();
  EXPECT_EQ(formula("A1"), u"x");
  // Screen updating goes off and on again around each write-back.
  EXPECT_EQ(watched->modes, std::vector<int32_t>(4, -4135));
  EXPECT_EQ(app->calculation(), host::xl::CalculationSemiautomatic);
}

TEST_F(GenericUnit, ARangeOnADeletedSheetRestoresNothingAndRaisesNothing) {
  auto other = wb->worksheets()->add();
  other->range(Variant(u"A1"))->set_formula(u"keep");
  undo->CaptureGenericUndo(other->range(Variant(u"A1")), u"Gone");
  undo->SetGenericUndo();
  other->delete_();
  user.press_undo();
  EXPECT_THAT(redo_texts(), ElementsAre("&Undo Gone (QZ)"));
  EXPECT_EQ(redo_caption(), "&Redo Gone (QZ)");
}

TEST_F(GenericUnit, TheCaptureLimitIsAThousandCells) {
  undo->CaptureGenericUndo(r("A1"), u"Small");
  undo->CaptureGenericUndo(r("A1:J100"), u"Thousand");
  EXPECT_THAT(undo_texts(), ElementsAre("&Undo Thousand (QZ)"));
  undo->CaptureGenericUndo(r("A1:A1001"), u"Too Many");
  EXPECT_THAT(undo_texts(), ElementsAre("&Undo Thousand (QZ)"));
  // The refused capture leaves the pending caption as the last accepted one.
  undo->SetGenericUndo();
  EXPECT_EQ(undo_caption(), "&Undo Thousand (QZ)");
}

TEST_F(GenericUnit, SetGenericUndoArmsUndoOnceForEachCapture) {
  undo->CaptureGenericUndo(r("A1"), u"Once");
  undo->SetGenericUndo();
  app->on_undo(u"Other", u"OtherProc");
  undo->SetGenericUndo();
  EXPECT_EQ(undo_caption(), "Other");
}

class Stacks : public ClientTest {
 protected:
  void SetUp() override { start_product(u"QZModel", u"Model"); }
  void push(const std::string& name) {
    undo->SetCustomUndo(u"QZModel", u"UndoIt", u"RedoIt", u16(name));
  }
};

TEST_F(Stacks, TheHundredAndFirstPushDropsTheOldest) {
  for (int i = 1; i <= 101; ++i) {
    const String n = u16(std::to_string(i));
    undo->SetCustomUndo(u"QZModel", u"Undo" + n, u"Redo" + n, u"Step " + n);
  }
  auto texts = undo_texts();
  ASSERT_EQ(texts.size(), 100u);
  EXPECT_EQ(texts.front(), "&Undo Step 2 (QZ)");
  EXPECT_EQ(texts.back(), "&Undo Step 101 (QZ)");
  // A person choosing Undo again and again goes back a hundred steps, newest first, and
  // then finds nothing more to undo: the first step is gone.
  for (int i = 0; i < 101; ++i) {
    user.press_undo();
    user.idle();
  }
  ASSERT_EQ(callback->ran.size(), 100u);
  EXPECT_EQ(callback->ran.front(), u"Undo101");
  EXPECT_EQ(callback->ran.back(), u"Undo2");
  EXPECT_EQ(undo_caption(), "Can't &Undo");
  EXPECT_EQ(redo_caption(), "&Redo Step 2 (QZ)");
}

TEST_F(Stacks, APersonsOwnTypingEmptiesTheStackAtTheNextPush) {
  push("One");
  push("Two");
  user.type(u"C3", u"typed");
  EXPECT_EQ(undo_caption(), "&Undo Typing");
  push("Three");
  EXPECT_THAT(undo_texts(), ElementsAre("&Undo Three (QZ)"));
  EXPECT_EQ(undo_caption(), "&Undo Three (QZ)");
}

TEST_F(Stacks, ANewActionEmptiesTheRedoStack) {
  push("One");
  user.press_undo();
  EXPECT_THAT(redo_texts(), ElementsAre("&Undo One (QZ)"));
  push("Two");
  EXPECT_THAT(redo_texts(), IsEmpty());
  EXPECT_EQ(redo_caption(), "Can't &Redo");
}

TEST_F(Stacks, EachStackIsClearedOnItsOwn) {
  push("One");
  push("Two");
  undo->QZUndo();
  undo->ClearRedoStack();
  EXPECT_THAT(undo_texts(), ElementsAre("&Undo One (QZ)"));
  EXPECT_THAT(redo_texts(), IsEmpty());
  undo->QZUndo();
  undo->ClearUndoStack();
  EXPECT_THAT(redo_texts(), ElementsAre("&Undo One (QZ)"));
  EXPECT_THAT(undo_texts(), IsEmpty());
  // With nothing to arm, Undo keeps what it showed.
  app->on_undo(u"Mine", u"MyProc");
  undo->SetQZUndo();
  EXPECT_EQ(undo_caption(), "Mine");
}

TEST_F(Stacks, RedoOntoAFullStackKeepsEveryUnit) {
  for (int i = 1; i <= 100; ++i) push("Step " + std::to_string(i));
  auto& stack = *frame::session().UndoStack;
  auto top = stack.back();
  stack.pop_back();
  frame::session().RedoStack->push_back(top);
  stack.insert(stack.begin(), std::make_shared<cUndoRedoUnit>());  // a hundred again
  undo->QZRedo();
  ASSERT_EQ(undo_texts().size(), 101u);
  EXPECT_EQ(undo_texts().back(), "&Undo Step 100 (QZ)");
  EXPECT_EQ(undo_texts()[1], "&Undo Step 1 (QZ)");
}

TEST_F(Stacks, UndoRedoUndoLeavesTheUnitOnTheRedoStackOnce) {
  push("One");
  undo->QZUndo();
  undo->QZRedo();
  undo->QZUndo();
  EXPECT_THAT(redo_texts(), ElementsAre("&Undo One (QZ)"));
  EXPECT_THAT(undo_texts(), IsEmpty());
  // Empty stacks: nothing happens, nothing is raised.
  undo->QZUndo();
  undo->ClearStacks();
  undo->QZRedo();
  EXPECT_THAT(undo_texts(), IsEmpty());
}

class ClientUnits : public Stacks {};

TEST_F(ClientUnits, UndoAndRedoRunTheClientsMacrosThroughItsCallback) {
  push("Paste Links");
  EXPECT_EQ(undo_caption(), "&Undo Paste Links (QZ)");
  user.press_undo();
  EXPECT_THAT(callback->ran, ElementsAre(u"UndoIt"));
  EXPECT_EQ(redo_caption(), "&Redo Paste Links (QZ)");
  user.press_redo();
  EXPECT_THAT(callback->ran, ElementsAre(u"UndoIt", u"RedoIt"));
  EXPECT_EQ(undo_caption(), "&Undo Paste Links (QZ)");
  EXPECT_EQ(redo_caption(), "Can't &Redo");
}

TEST_F(ClientUnits, TheClientsMacrosRunWhileRecalculationWaits) {
  callback->watch = app;
  app->set_calculation(host::xl::CalculationSemiautomatic);
  push("Paste");
  user.press_undo();
  EXPECT_EQ(app->calculation(), host::xl::CalculationSemiautomatic);
  user.press_redo();
  EXPECT_EQ(callback->modes, std::vector<int32_t>(2, -4135));
  EXPECT_EQ(app->calculation(), host::xl::CalculationSemiautomatic);
}

TEST_F(ClientUnits, TheNextUnitIsArmedWhenTheApplicationIsIdleAgain) {
  push("First");
  push("Second");
  user.press_undo();
  EXPECT_THAT(callback->ran, ElementsAre(u"UndoIt"));
  // The application took Undo back to run the macro; the scheduled "SetQZUndo" re-arms it.
  EXPECT_EQ(undo_caption(), "Can't &Undo");
  user.idle();
  EXPECT_EQ(undo_caption(), "&Undo First (QZ)");
  user.press_undo();
  user.idle();
  EXPECT_EQ(undo_caption(), "Can't &Undo");
  EXPECT_EQ(redo_caption(), "&Redo First (QZ)");
  user.press_redo();
  EXPECT_EQ(redo_caption(), "&Redo Second (QZ)");
}

TEST_F(ClientUnits, AProductWithoutCallbackRecordsNothing) {
  lib->NewProduct(u"Silent", Variant(true), Variant(u"Silent"));
  undo->SetCustomUndo(u"Silent", u"U", u"R", u"Quiet");
  undo->SetCustomUndo(u"Unknown", u"U", u"R", u"Quiet");
  undo->SetCustomUndo(u"QZModel", u"", u"R", u"No Undo Macro");
  undo->SetCustomUndo(u"QZModel", u"U", u"", u"No Redo Macro");
  undo->Subscribe(u"Unknown", callback);
  EXPECT_THAT(undo_texts(), IsEmpty());
}

TEST_F(ClientUnits, ARemovedProductsUnitDoesNothingButTheCommandsAreStillArmed) {
  lib->NewProduct(u"Other", Variant(true), Variant(u"Other"));  // keeps the session alive
  push("Orphan");
  lib->RemoveProduct(u"QZModel");
  user.press_undo();
  EXPECT_THAT(callback->ran, IsEmpty());
  EXPECT_EQ(redo_caption(), "&Redo Orphan (QZ)");
}

}  // namespace
}  // namespace qz::test
