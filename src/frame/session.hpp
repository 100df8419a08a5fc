// The per-process session: the application served, the registered products, the undo and
// redo stacks, the AutoColor settings store, the sibling services and the library's own
// service objects. Every object of the library shares this one set.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "host/host.hpp"
#include "qzxl/interfaces.hpp"
#include "vblib/vblib.hpp"

namespace qz {

class cUndoRedoUnit;  // an undo unit (undo layer)

/// Holds the application for the session.
class cXL : public Object {
 public:
  String type_name() const override { return u"cXL"; }
  void Init(const host::ApplicationPtr& vApp) { app_ = vApp; }
  const host::ApplicationPtr& App() const { return app_; }

 private:
  host::ApplicationPtr app_;
};

/// The wrapper of the sibling services: the public object and nine service objects.
class diQZVBLib {
 public:
  /// Loads the sibling library and takes its services; false when it cannot be loaded.
  bool Create();

  std::shared_ptr<vblib::Public> iPublic;
  std::shared_ptr<vblib::Const> iConst;
  std::shared_ptr<vblib::DocProps> iDocProp;
  std::shared_ptr<vblib::Files> iFile;
  std::shared_ptr<vblib::Guid> iGUID;
  std::shared_ptr<vblib::HotKeys> iHotKeys;
  std::shared_ptr<vblib::Screen> iScreen;
  std::shared_ptr<vblib::Sort> iSort;
  std::shared_ptr<vblib::Strings> iString;
  std::shared_ptr<vblib::WinApi> iWinAPI;
};

namespace frame {

/// The registered products, keyed by code name (keys compared without regard to case, as
/// the runtime's collections do), in registration order.
class ProductCollection {
 public:
  int32_t count() const { return static_cast<int32_t>(items_.size()); }
  /// The product under `code`, or nullptr.
  iXLLibProductPtr find(StringView code) const;
  bool contains(StringView code) const { return find(code) != nullptr; }
  void add(const String& code, iXLLibProductPtr product);
  void remove(StringView code);
  const std::vector<std::pair<String, iXLLibProductPtr>>& items() const { return items_; }

 private:
  std::vector<std::pair<String, iXLLibProductPtr>> items_;
};

/// A stack of undo units; its top is the last element.
using UnitStack = std::vector<std::shared_ptr<cUndoRedoUnit>>;

struct Session {
  std::shared_ptr<ProductCollection> Products;
  std::shared_ptr<vblib::Settings> AutoColorSettings;
  std::shared_ptr<cXL> XLSession;
  host::ApplicationPtr XLApp;
  std::shared_ptr<diQZVBLib> VBLib;
  iControlPtr LibControl;
  iFormulaPtr LibFormula;
  iMenuPtr LibMenu;
  iRangePtr LibRange;
  iUndoRedoPtr LibUndoRedo;
  iWorkbookPtr LibWorkbook;
  iWorksheetPtr LibWorksheet;
  std::shared_ptr<UnitStack> UndoStack;
  std::shared_ptr<UnitStack> RedoStack;
  bool LibLoaded = false;
  /// Written by `iAutoColor.UpdateCtrlEnter`, reset by every `RunAutoColor`.
  bool CtrlEnterPressed = false;
  bool CtrlShiftEnterPressed = false;
};

/// The session of this process.
Session& session();

/// How the session's service objects are made. The library's top layer, which knows every
/// class, installs these before the first object is created; the frame only knows the roles.
struct ServiceMakers {
  std::function<iControlPtr()> control;
  std::function<iFormulaPtr()> formula;
  std::function<iMenuPtr()> menu;
  std::function<iRangePtr()> range;
  std::function<iUndoRedoPtr()> undo_redo;
  std::function<iWorkbookPtr()> workbook;
  std::function<iWorksheetPtr()> worksheet;
};
void install_service_makers(ServiceMakers makers);

/// Runs once per process, when the first object of the library is created: loads the
/// sibling services, ignoring failure.
void module_entry();

/// Loads the sibling services and creates the session's objects; on failure shows the
/// library's message once and creates nothing.
bool LoadVBLib();
/// Sets every session object to nothing and `LibLoaded` to False.
void ReleaseGlobals();
/// Empties both stacks and gives the application's Undo and Redo back when their captions
/// are still the library's (" (QZ)").
void ResetXLUndoRedo();
/// Captions of the application's Undo and Redo buttons ("" when they cannot be read).
String UndoBtnCaption();
String RedoBtnCaption();
/// The session's application; else a running one; else one started through the platform
/// (`started` is then set True). Nothing when none can be had.
host::ApplicationPtr GetXLApp(bool& started);
/// `FindWindowA("XLMAIN")` through the platform; 0 when there is no such window.
int32_t GetXLMainWindow();

/// True when `caption` ends in " (QZ)" (case-sensitive), the mark of the library's captions.
bool is_qz_caption(StringView caption);

/// The text of the message shown when the sibling services cannot be loaded.
extern const char16_t kLoadFailureMessage[];

/// Forgets everything: the session, the module entry and the service makers' results, as a
/// new process would start. For tests.
void reset_session_for_tests();

}  // namespace frame
}  // namespace qz
