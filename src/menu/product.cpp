#include "menu/product.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

ObjectPtr iXLLibProduct::UndoRedoIF() { return {}; }  // STUB
void iXLLibProduct::putref_UndoRedoIF(const ObjectPtr&) {}  // STUB
void iXLLibProduct::Terminate() {}  // STUB
void iXLLibProduct::put_CodeName(const String&, const Variant&) {}  // STUB
String iXLLibProduct::CodeName(const Variant&) { return {}; }  // STUB
void iXLLibProduct::put_Name(const String&) {}  // STUB
String iXLLibProduct::Name() { return {}; }  // STUB
host::CommandBarControlPtr iXLLibProduct::CreateProductMenu(const Variant&, bool, const Variant&) { return {}; }  // STUB
host::CommandBarControlPtr iXLLibProduct::ProductMenu(const Variant&) { return {}; }  // STUB

}  // namespace qz
