// Menus and client products against the engine's command bars: built-in controls found by id
// whatever their captions, controls a client creates, product registration and menus, and
// the end of the session when the last product leaves.
#include <gmock/gmock.h>

#include "undo/client.hpp"

namespace qz::test {
namespace {

namespace mso = host::mso;

class Menus : public ClientTest {
 protected:
  std::vector<std::string> captions(const host::CommandBarControlsPtr& controls) {
    std::vector<std::string> out;
    for (int32_t i = 1; i <= controls->count(); ++i)
      out.push_back(to_utf8(controls->item(Variant(i))->caption()));
    return out;
  }
};

TEST_F(Menus, BuiltInMenusAreFoundByIdWhateverTheirCaptionsSay) {
  // A translated application: every menu of both bars has a caption of its own language.
  for (auto bar : {menu->MainMenuBar(), menu->ChartMenuBar()})
    for (int32_t i = 1; i <= bar->controls()->count(); ++i)
      bar->controls()->item(Variant(i))->set_caption(u"Menü " + u16(std::to_string(i)));
  struct Case {
    host::CommandBarControlPtr found;
    int32_t id;
  };
  for (const Case& c :
       {Case{menu->FileMenu(), 30002}, Case{menu->EditMenu(), 30003}, Case{menu->ViewMenu(), 30004},
        Case{menu->InsertMenu(), 30005}, Case{menu->FormatMenu(), 30006},
        Case{menu->ToolsMenu(), 30007}, Case{menu->DataMenu(), 30011},
        Case{menu->WindowMenu(), 30009}, Case{menu->HelpMenu(), 30010}}) {
    ASSERT_TRUE(c.found) << c.id;
    EXPECT_EQ(c.found->id(), c.id);
    EXPECT_EQ(c.found->type(), 10);  // a popup
  }
  EXPECT_EQ(menu->DataMenu()->parent(), ObjectPtr(menu->MainMenuBar()));
  EXPECT_EQ(menu->FileMenu(true)->parent(), ObjectPtr(menu->ChartMenuBar()));
  EXPECT_NE(menu->FileMenu(true), menu->FileMenu(false));
  // The chart bar has a Chart menu where the worksheet bar has Data.
  EXPECT_EQ(menu->DataMenu(true), nullptr);
}

TEST_F(Menus, TheUndoAndRedoButtonsSayWhatTheyWouldDo) {
  EXPECT_EQ(menu->FileNewButton()->id(), 18);
  EXPECT_EQ(menu->UndoButton()->caption(), u"Can't &Undo");
  user.type(u"B2", u"1");
  EXPECT_EQ(menu->UndoButton(true)->caption(), u"&Undo Typing");
  app->on_repeat(u"&Redo Mine (QZ)", u"Mine");
  EXPECT_EQ(menu->RedoButton()->caption(), u"&Redo Mine (QZ)");
  // Every copy of the button says the same: the toolbar's too.
  host::FindControlArgs undo_id;
  undo_id.id = Variant(int32_t{128});
  EXPECT_EQ(app->command_bars()->item(Variant(u"Standard"))->find_control(undo_id)->caption(),
            u"&Undo Typing");
}

TEST_F(Menus, TheApplicationIsNotReadyWhileACellIsInEdit) {
  auto books = lib->NewWorkbook();
  EXPECT_TRUE(books->ExcelIsReady());
  start_product(u"QZModel", u"Model");
  undo->SetCustomUndo(u"QZModel", u"U", u"R", u"First");
  undo->SetCustomUndo(u"QZModel", u"U", u"R", u"Second");
  user.press_undo();

  user.start_typing(u"=1+");
  EXPECT_FALSE(books->ExcelIsReady());
  EXPECT_FALSE(menu->FileNewButton()->enabled());
  EXPECT_FALSE(menu->UndoButton()->enabled());
  // Add-ins' own controls are left as they are; nothing has been entered yet, and the undo
  // the library scheduled waits for the application to be idle.
  auto mine = menu->CreateBtn(Variant(u"&Mine"), Variant::missing(), Variant(menu->ToolsMenu()));
  EXPECT_TRUE(mine->enabled());
  EXPECT_EQ(formula("A1"), u"");
  user.idle();
  EXPECT_EQ(undo_caption(), "Can't &Undo");

  user.press_escape();
  EXPECT_TRUE(books->ExcelIsReady());
  EXPECT_EQ(formula("A1"), u"");
  user.idle();
  EXPECT_EQ(undo_caption(), "&Undo First (QZ)");

  user.start_typing(u"=1+2");
  user.press_enter();
  EXPECT_EQ(formula("A1"), u"=1+2");
  EXPECT_TRUE(books->ExcelIsReady());
  EXPECT_EQ(undo_caption(), "&Undo Typing");
}

TEST_F(Menus, APopupGoesAtTheEndOrBeforeTheGivenPosition) {
  auto tools = menu->ToolsMenu();
  const int32_t n = tools->controls()->count();
  auto last = menu->CreatePopup(Variant(tools), Variant(u"&Last"), Variant(true), Variant(0));
  EXPECT_EQ(last->index(), n + 1);
  EXPECT_TRUE(last->begin_group());
  auto third = menu->CreatePopup(Variant(tools), Variant(u"&Third"), Variant::missing(), Variant(3),
                                 Variant(u"mX.Go"), false, Variant(u"tag"));
  // Created controls go with the application unless the client asks to keep them.
  EXPECT_EQ(engine::is_temporary(last), true);
  EXPECT_EQ(engine::is_temporary(third), false);
  EXPECT_EQ(third->index(), 3);
  EXPECT_EQ(captions(tools->controls())[2], "&Third");
  EXPECT_EQ(third->on_action(), u"mX.Go");
  EXPECT_EQ(third->tag(), u"tag");
  // A popup of the same caption is made again, never reused.
  auto again = menu->CreatePopup(Variant(tools), Variant(u"&Third"));
  EXPECT_NE(again, third);
  EXPECT_EQ(menu->CreatePopup(Variant(u"not a bar")), nullptr);
}

TEST_F(Menus, AButtonNeedsAPopupAndTakesOnlyWhatIsGiven) {
  auto popup = menu->CreatePopup(Variant(menu->ToolsMenu()), Variant(u"&Model"));
  auto button = menu->CreateBtn(Variant(u"&Run"), Variant::missing(), Variant(popup));
  ASSERT_TRUE(button);
  EXPECT_EQ(button->caption(), u"&Run");
  EXPECT_EQ(button->on_action(), u"");
  EXPECT_EQ(button->type(), 1);  // a button
  EXPECT_EQ(button->parent(), ObjectPtr(popup));
  auto full =
      menu->CreateBtn(Variant(u"&Go"), Variant(u"mX.Go"), Variant(popup), Variant(true), Variant(1),
                      Variant(int32_t{59}), false, Variant(u"Ctrl+G"), Variant(u"go"));
  EXPECT_EQ(engine::is_temporary(button), true);
  EXPECT_EQ(engine::is_temporary(full), false);
  EXPECT_EQ(full->index(), 1);
  EXPECT_EQ(full->face_id(), 59);
  EXPECT_EQ(full->shortcut_text(), u"Ctrl+G");
  EXPECT_EQ(full->tag(), u"go");
  EXPECT_EQ(menu->CreateBtn(Variant(u"&Lost")), nullptr);
  EXPECT_EQ(menu->CreateBtn(Variant(u"&Lost"), Variant::missing(), Variant(u"text")), nullptr);
  // Clicking runs the macro the button names.
  int runs = 0;
  engine::register_macro(app, u"mX.Go", [&](std::span<Variant>) {
    ++runs;
    return Variant();
  });
  user.click(full);
  EXPECT_EQ(runs, 1);
}

TEST_F(Menus, AToolbarIsAddedUnderItsNameAndShownAsAsked) {
  auto bar = menu->CreateToolbar(Variant(u"Model Tools"), Variant(mso::BarFloating));
  ASSERT_TRUE(bar);
  EXPECT_EQ(bar->name(), u"Model Tools");
  EXPECT_TRUE(bar->visible());
  EXPECT_EQ(app->command_bars()->item(Variant(u"model tools")), bar);
  EXPECT_EQ(engine::is_temporary(bar), true);
  // A second bar of that name is refused; the hidden one is made.
  EXPECT_EQ(menu->CreateToolbar(Variant(u"Model Tools")), nullptr);
  auto hidden = menu->CreateToolbar(Variant(u"Quiet"), Variant::missing(), false, false);
  EXPECT_FALSE(hidden->visible());
  EXPECT_EQ(engine::is_temporary(hidden), false);
}

class Products : public ClientTest {};

TEST_F(Products, TheNewestRegistrationUnderACodeNameWins) {
  auto first = lib->NewProduct(u"QZModel", Variant(true), Variant(u"Model"));
  auto second = lib->NewProduct(u"qzmodel", Variant(true), Variant(u"Model 2"));
  auto loose = lib->NewProduct(u"Loose", Variant(false));
  lib->NewProduct(u"Vague", Variant(u"perhaps"));  // no Boolean: not a product either
  const auto& products = *frame::session().Products;
  ASSERT_EQ(products.count(), 1);
  EXPECT_EQ(products.find(u"QZMODEL"), second);
  EXPECT_EQ(loose->CodeName(), u"Loose");
  EXPECT_FALSE(products.contains(u"Loose") || products.contains(u"Vague"));
  EXPECT_EQ(second->Name(), u"Model 2");
  // A factory that was never given the application makes no product.
  EXPECT_EQ(create_iXLLibPublic()->NewProduct(u"Other"), nullptr);
}

TEST_F(Products, TheProductMenuIsFoundAgainByItsMarkInFrontOfHelp) {
  auto product = start_product(u"QZModel", u"Model");
  auto made = product->CreateProductMenu();
  ASSERT_TRUE(made);
  EXPECT_EQ(made->caption(), u"Quazel Model");
  EXPECT_EQ(engine::is_temporary(made), true);
  EXPECT_EQ(made->index() + 1, menu->HelpMenu()->index());
  EXPECT_EQ(product->ProductMenu(), made);
  EXPECT_EQ(product->ProductMenu(Variant(true)), nullptr);
  EXPECT_EQ(product->CreateProductMenu(Variant(u""))->caption(), u"Quazel Model");

  // A caption of the client's own, and a second creation: still one menu, found by its mark.
  auto captioned = product->CreateProductMenu(Variant(u"&Model"), false);
  EXPECT_EQ(captioned->caption(), u"&Model");
  EXPECT_EQ(engine::is_temporary(captioned), false);
  EXPECT_EQ(product->ProductMenu(), captioned);
  int marked = 0;
  auto bar = menu->MainMenuBar()->controls();
  for (int32_t i = 1; i <= bar->count(); ++i)
    if (bar->item(Variant(i))->tag() == u"Quazel Model") ++marked;
  EXPECT_EQ(marked, 1);

  auto chart = product->CreateProductMenu(Variant(u"&Model"), true, Variant(true));
  EXPECT_EQ(product->ProductMenu(Variant(true)), chart);
  EXPECT_EQ(chart->parent(), ObjectPtr(menu->ChartMenuBar()));
}

TEST_F(Products, TheLastProductToLeaveHandsUndoAndRedoBack) {
  start_product(u"QZModel", u"Model");
  start_product(u"QZChart", u"Chart");
  undo->SetCustomUndo(u"QZModel", u"U", u"R", u"Step");
  user.press_undo();
  user.idle();
  undo->SetCustomUndo(u"QZModel", u"U", u"R", u"Next");
  app->on_repeat(u"&Repeat Format", u"SomeoneElse");

  lib->RemoveProduct(u"QZChart");
  EXPECT_TRUE(frame::session().LibLoaded);
  EXPECT_EQ(undo_caption(), "&Undo Next (QZ)");

  // Undo is still the library's and goes back; Redo is someone else's and stays.
  lib->RemoveProduct(u"QZModel");
  EXPECT_FALSE(frame::session().LibLoaded);
  EXPECT_EQ(undo_caption(), "Can't &Undo");
  EXPECT_EQ(redo_caption(), "&Repeat Format");
  lib->RemoveProduct(u"QZModel");  // unknown now: nothing happens
}

TEST_F(Products, ACommandThatIsNoLongerTheLibrarysIsLeftAlone) {
  auto product = start_product(u"QZModel", u"Model");
  undo->SetCustomUndo(u"QZModel", u"U", u"R", u"Step");
  user.type(u"B2", u"7");
  app->on_repeat(u"&Redo Step (QZ)", u"QZRedo");
  product->Terminate();
  EXPECT_FALSE(frame::session().LibLoaded);
  EXPECT_EQ(undo_caption(), "&Undo Typing");
  EXPECT_EQ(redo_caption(), "Can't &Redo");
}

}  // namespace
}  // namespace qz::test
