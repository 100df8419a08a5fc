// One client product: its names, its undo/redo callback object and its menu.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// One client product: its names, its undo/redo callback object and its menu.
///
/// The product's menu carries the mark "Quazel " + friendly name in its Tag, whatever its
/// caption says, so `ProductMenu` finds it again after a client renames the caption or the
/// application shows it translated; a menu made without a caption shows the mark as caption.
class iXLLibProduct final : public _iXLLibProduct {
 public:
  String type_name() const override { return u"iXLLibProduct"; }
  ObjectPtr UndoRedoIF() override;
  void putref_UndoRedoIF(const ObjectPtr& vUndoRedoIF) override;
  void Terminate() override;
  void put_CodeName(const String& vCodeName, const Variant& vRepresentsProduct) override;
  String CodeName(const Variant& vRepresentsProduct) override;
  void put_Name(const String& vName) override;
  String Name() override;
  host::CommandBarControlPtr CreateProductMenu(const Variant& vCaption, bool vTemporary,
                                               const Variant& vForChart) override;
  host::CommandBarControlPtr ProductMenu(const Variant& vForChart) override;

  /// The text that marks this product's menu.
  String MenuMark() const;

 private:
  String code_name_;
  String name_;
  ObjectPtr undo_redo_if_;
};

}  // namespace qz
