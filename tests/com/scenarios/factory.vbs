' The factory and the session through COM: creation by ProgID, the New... methods, InitXL,
' products, and what the boundary does with object identity.
Dim f, name, same, a, b, p, chart

Set f = CreateObject("QZXLLib.iXLLibPublic")
CheckEq "the factory's interface", TypeName(f), "_iXLLibPublic"
name = "Client"
Set same = f.NewPublic(name)
Check "NewPublic returns the factory itself", same Is f
CheckEq "NewPublic leaves its by-reference name alone", name, "Client"
Check "NewQuazel returns the factory itself", f.NewQuazel(name) Is f

' Without InitXL there is no product.
Check "NewProduct before InitXL gives Nothing", f.NewProduct("Early", True, "Early") Is Nothing

CheckEq "NewAutoColor", TypeName(f.NewAutoColor()), "_iAutoColor"
CheckEq "NewChartXL", TypeName(f.NewChartXL()), "_iChartXL"
CheckEq "NewConst", TypeName(f.NewConst()), "_iXLLibConst"
CheckEq "NewControl", TypeName(f.NewControl()), "_iControl"
CheckEq "NewDisplay", TypeName(f.NewDisplay()), "_iDisplay"
CheckEq "NewFormula", TypeName(f.NewFormula()), "_iFormula"
CheckEq "NewMenu", TypeName(f.NewMenu()), "_iMenu"
CheckEq "NewRange", TypeName(f.NewRange()), "_iRange"
CheckEq "NewUndoRedo", TypeName(f.NewUndoRedo()), "_iUndoRedo"
CheckEq "NewWorkbook", TypeName(f.NewWorkbook()), "_iWorkbook"
CheckEq "NewWorksheet", TypeName(f.NewWorksheet()), "_iWorksheet"

' Every New... call is a fresh object; the same object handed out twice stays one object.
Set a = f.NewRange()
Set b = f.NewRange()
Check "two NewRange calls give two objects", Not (a Is b)
Check "an object is itself", a Is a

' The other creatable class.
Set chart = CreateObject("QZXLLib.iChartXL")
CheckEq "iChartXL by its ProgID", TypeName(chart), "_iChartXL"

' A session over an engine application.
Set App = Engine.NewApplication()
App.Workbooks.Add
f.InitXL App
Set p = f.NewProduct("ScenarioProduct", True, "Scenario Product")
Check "NewProduct after InitXL", Not (p Is Nothing)
CheckEq "the product's interface", TypeName(p), "_iXLLibProduct"
' Optional arguments left out.
Check "NewProduct with only the code name", Not (f.NewProduct("Bare") Is Nothing)

On Error Resume Next
f.RemoveProduct "NoSuchProduct"
CheckRaised "RemoveProduct of an unknown code name raises nothing", 0
' A second InitXL replaces the application and raises nothing.
f.InitXL Engine.NewApplication()
CheckRaised "InitXL again", 0
' Arguments that do not convert are refused before the library sees them.
f.RemoveProduct Array(1, 2)
CheckRaised "an array where text is declared", 13
On Error GoTo 0
