#include <gtest/gtest.h>

#include "frame/session.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"
#include "support/fake_host.hpp"

namespace qz {
namespace {

class App : public test::UnsupportedApplication {};

// A registered product that only notes that it was told to end.
class EndingProduct : public _iXLLibProduct {
 public:
  int terminated = 0;
  String type_name() const override { return u"iXLLibProduct"; }
  ObjectPtr UndoRedoIF() override { return nullptr; }
  void putref_UndoRedoIF(const ObjectPtr&) override {}
  void Terminate() override { ++terminated; }
  void put_CodeName(const String&, const Variant&) override {}
  String CodeName(const Variant&) override { return u""; }
  void put_Name(const String&) override {}
  String Name() override { return u""; }
  host::CommandBarControlPtr CreateProductMenu(const Variant&, bool, const Variant&) override {
    return nullptr;
  }
  host::CommandBarControlPtr ProductMenu(const Variant&) override { return nullptr; }
};

class Factory : public ::testing::Test {
 protected:
  std::shared_ptr<_iXLLibPublic> loaded_factory() {
    auto f = create_iXLLibPublic();
    String name = u"Client";
    f->NewPublic(name);
    return f;
  }
  frame::Session& s = frame::session();
  test::SessionScope scope;
};

TEST_F(Factory, TwoFactoriesShareOneSession) {
  auto f1 = loaded_factory();
  ASSERT_TRUE(s.LibLoaded);
  auto range = s.LibRange;
  auto stack = s.UndoStack;
  auto products = s.Products;
  auto settings = s.AutoColorSettings;
  ASSERT_TRUE(range && stack && products && settings);
  const diQZVBLib& v = *s.VBLib;
  EXPECT_TRUE(v.iPublic && v.iConst && v.iDocProp && v.iFile && v.iGUID && v.iHotKeys &&
              v.iScreen && v.iSort && v.iString && v.iWinAPI);

  auto f2 = loaded_factory();
  EXPECT_NE(f1, f2);
  // The second factory found the session loaded and built nothing anew.
  EXPECT_EQ(s.LibRange, range);
  EXPECT_EQ(s.UndoStack, stack);
  EXPECT_EQ(s.Products, products);
  EXPECT_EQ(s.AutoColorSettings, settings);
  String name;
  EXPECT_EQ(f2->NewPublic(name), f2);
  EXPECT_EQ(f2->NewQuazel(name), f2);

  auto app = std::make_shared<App>();
  f1->InitXL(app);
  EXPECT_EQ(s.XLApp, app);  // what one factory hands over, every object of the library sees
  EXPECT_TRUE(scope.ui->messages.empty());
}

TEST_F(Factory, EveryNewCallReturnsAFreshObjectNeverASessionOne) {
  auto f = loaded_factory();
  auto r1 = f->NewRange(), r2 = f->NewRange();
  EXPECT_NE(r1, r2);
  EXPECT_NE(r1, s.LibRange);
  EXPECT_NE(f->NewUndoRedo(), s.LibUndoRedo);
  EXPECT_NE(f->NewMenu(), s.LibMenu);
  EXPECT_NE(f->NewFormula(), s.LibFormula);
  EXPECT_NE(f->NewWorkbook(), s.LibWorkbook);
  EXPECT_NE(f->NewWorksheet(), s.LibWorksheet);
  EXPECT_NE(f->NewControl(), s.LibControl);
  const std::pair<ObjectPtr, const char16_t*> made[] = {
      {f->NewAutoColor(), u"iAutoColor"}, {f->NewChartXL(), u"iChartXL"},
      {f->NewConst(), u"iXLLibConst"},    {f->NewControl(), u"iControl"},
      {f->NewDisplay(), u"iDisplay"},     {f->NewFormula(), u"iFormula"},
      {f->NewMenu(), u"iMenu"},           {f->NewRange(), u"iRange"},
      {f->NewUndoRedo(), u"iUndoRedo"},   {f->NewWorkbook(), u"iWorkbook"},
      {f->NewWorksheet(), u"iWorksheet"},
  };
  for (const auto& [object, type] : made) {
    ASSERT_TRUE(object) << to_utf8(type);
    EXPECT_EQ(object->type_name(), type);
  }
}

TEST_F(Factory, InitXLTwiceKeepsTheSecondApplication) {
  auto f = loaded_factory();
  auto first = std::make_shared<App>(), second = std::make_shared<App>();
  f->InitXL(first);
  auto first_holder = s.XLSession;
  f->InitXL(second);
  EXPECT_EQ(s.XLApp, second);
  ASSERT_TRUE(s.XLSession);
  EXPECT_NE(s.XLSession, first_holder);
  EXPECT_EQ(s.XLSession->App(), second);
}

TEST_F(Factory, NewProductNeedsInitXLOnThatFactory) {
  auto f1 = loaded_factory(), f2 = loaded_factory();
  EXPECT_EQ(f1->NewProduct(u"RivuletXL"), nullptr);
  f1->InitXL(std::make_shared<App>());
  EXPECT_NE(f1->NewProduct(u"RivuletXL", Variant(true), Variant(u"Rivulet")), nullptr);
  EXPECT_EQ(f2->NewProduct(u"RivuletXL"), nullptr);  // the session has an application; f2 not
}

TEST_F(Factory, RemoveProductEndsOnlyARegisteredProduct) {
  auto f = loaded_factory();
  auto product = std::make_shared<EndingProduct>();
  s.Products->add(u"RivuletXL", product);
  f->RemoveProduct(u"Other");
  EXPECT_EQ(product->terminated, 0);
  EXPECT_EQ(s.Products->count(), 1);
  f->RemoveProduct(u"rivuletxl");  // code names are keys that ignore case
  EXPECT_EQ(product->terminated, 1);
  EXPECT_TRUE(scope.ui->messages.empty());
}

TEST_F(Factory, AfterTheReleaseTheNextNewPublicRebuildsEverything) {
  auto f = loaded_factory();
  f->InitXL(std::make_shared<App>());
  s.Products->add(u"RivuletXL", std::make_shared<EndingProduct>());
  auto old_range = s.LibRange;
  auto old_stack = s.UndoStack;

  frame::ReleaseGlobals();
  EXPECT_FALSE(s.LibLoaded);
  EXPECT_FALSE(s.Products || s.LibRange || s.LibMenu || s.UndoStack || s.RedoStack ||
               s.AutoColorSettings || s.VBLib || s.XLApp || s.XLSession);

  String name;
  f->NewPublic(name);
  EXPECT_TRUE(s.LibLoaded);
  ASSERT_TRUE(s.LibRange && s.UndoStack && s.Products && s.AutoColorSettings && s.VBLib);
  EXPECT_NE(s.LibRange, old_range);
  EXPECT_NE(s.UndoStack, old_stack);
  EXPECT_EQ(s.Products->count(), 0);
  EXPECT_FALSE(s.XLApp);  // the client hands over its application again
}

TEST_F(Factory, AFailedLoadShowsItsMessageOncePerAttemptAndCreatesNothing) {
  vblib::set_load_failure(true);
  auto f = create_iXLLibPublic();  // the module entry's attempt
  ASSERT_EQ(scope.ui->messages.size(), 1u);
  const test::ShownMessage& m = scope.ui->messages[0];
  EXPECT_EQ(m.prompt,
            u"Unable to load the QZ VB Library from the QZ Excel Library.  Please contact "
            u"technical support.");
  EXPECT_EQ(m.style, msgbox::Critical);
  EXPECT_EQ(m.title, u"Quazel");
  EXPECT_FALSE(s.LibLoaded);
  EXPECT_FALSE(s.Products || s.LibControl || s.LibFormula || s.LibMenu || s.LibRange ||
               s.LibUndoRedo || s.LibWorkbook || s.LibWorksheet || s.UndoStack || s.RedoStack ||
               s.AutoColorSettings);

  create_iXLLibPublic();  // the module entry runs once per process
  EXPECT_EQ(scope.ui->messages.size(), 1u);
  String name;
  f->NewPublic(name);
  f->NewPublic(name);
  EXPECT_EQ(scope.ui->messages.size(), 3u);
  f->RemoveProduct(u"RivuletXL");  // no session: nothing to do, nothing raised

  vblib::set_load_failure(false);
  f->NewPublic(name);
  EXPECT_TRUE(s.LibLoaded);
  auto range = s.LibRange;
  f->NewPublic(name);
  EXPECT_EQ(s.LibRange, range);
  EXPECT_EQ(scope.ui->messages.size(), 3u);
}

TEST_F(Factory, CreatingTheChartClassLoadsTheSessionToo) {
  auto chart = create_iChartXL();
  ASSERT_TRUE(chart);
  EXPECT_TRUE(s.LibLoaded);
}

}  // namespace
}  // namespace qz
