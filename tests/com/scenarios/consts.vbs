' iXLLibConst: every constant, read late-bound as a property.
Dim c
StartSession
Set c = Lib.NewConst()
CheckEq "qzCellUnknown", c.qzCellUnknown, 0
CheckEq "qzCellEmpty", c.qzCellEmpty, 1
CheckEq "qzCellText", c.qzCellText, 2
CheckEq "qzCellBool", c.qzCellBool, 3
CheckEq "qzCellErr", c.qzCellErr, 4
CheckEq "qzCellDate", c.qzCellDate, 5
CheckEq "qzCellDateTime", c.qzCellDateTime, 6
CheckEq "qzCellTime", c.qzCellTime, 7
CheckEq "qzCellNumeric", c.qzCellNumeric, 8
CheckEq "qzDarkGreen", c.qzDarkGreen, 32768
CheckEq "qzPlum", c.qzPlum, 6697881
CheckEq "qzOrange", c.qzOrange, 26367
CheckEq "qzDefaultAutoColorOn", c.qzDefaultAutoColorOn, True
CheckEq "qzDefaultAutoColorHyperlinks", c.qzDefaultAutoColorHyperlinks, True
CheckEq "qzDefaultAutoColorText", c.qzDefaultAutoColorText, False
CheckEq "qzDefaultAutoColorDates", c.qzDefaultAutoColorDates, False
CheckEq "qzDefaultInputColor", c.qzDefaultInputColor, 16711680
CheckEq "qzDefaultPartialInputColor", c.qzDefaultPartialInputColor, 255
CheckEq "qzDefaultFormulaColor", c.qzDefaultFormulaColor, 0
CheckEq "qzDefaultWksLinkColor", c.qzDefaultWksLinkColor, 0
CheckEq "qzDefaultWkbLinkColor", c.qzDefaultWkbLinkColor, 255
CheckEq "qzDefaultHyperLinkColor", c.qzDefaultHyperLinkColor, 6697881
CheckEq "qzDefaultDummyNumberColor", c.qzDefaultDummyNumberColor, 255
' No application window exists here: the handle is 0 and nothing is raised.
CheckEq "MainExcelWindowHandle without a window", c.MainExcelWindowHandle, 0
' Constants are Longs and Booleans as declared, not whatever a script would make of them.
CheckEq "a colour constant's type", TypeName(c.qzPlum), "Long"
CheckEq "a switch constant's type", TypeName(c.qzDefaultAutoColorOn), "Boolean"
' The enumeration and the constant agree with what CellType reports.
App.Range("A1").Value = 42
CheckEq "CellType of a number is qzCellNumeric", Lib.NewRange().CellType(App.Range("A1")), c.qzCellNumeric
' Read-only: assigning is refused.
On Error Resume Next
c.qzPlum = 1
Check "assigning a constant raises", Err.Number <> 0
Err.Clear
On Error GoTo 0
