' iWorkbook, iWorksheet, iChartXL and iDisplay through COM: many by-reference results at
' once (GetWkb), workbooks and sheets handed in and out, listings.
Dim wb, ws, book, sheet, opened, conflict, blank, calc, alerts, saveCalc, changed, found
Dim landmark, stripped, chart, listing

StartSession
Set wb = Lib.NewWorkbook()
Set ws = Lib.NewWorksheet()
Set book = App.ActiveWorkbook
Set sheet = App.ActiveSheet

CheckEq "IsOpen by name", wb.IsOpen(Nothing, book.Name), True
CheckEq "IsOpen of a workbook that is not open", wb.IsOpen(Nothing, "Missing.xlsx"), False
CheckEq "IsOpen of the workbook itself", wb.IsOpen(book), True
CheckEq "a workbook without a code name is ThisWorkbook", wb.GetWkbCodeName(book), "ThisWorkbook"
CheckEq "the palette's red", wb.ColorIndexFromColor(255, book), 3
CheckEq "a workbook with a window is not hidden", wb.WkbIsHidden(book), False

' The offered number formats come as an array of Strings (vbArray + vbString), which a
' String array variable of a compiled client can take.
Dim formats
formats = wb.WkbCustomNumFormats(book)
CheckEq "the number formats are a String array", VarType(formats), 8200
' This script host reads only arrays of Variants (LBound and indexing stop the script on a
' String array), so only the type is checked here; the entries are the native tests' business.

' GetWkb: the workbook is open (from no folder) and no file of that name exists, so it is
' found and nothing is opened. The outputs it resets come back reset; the calculation
' outputs, written only when it opens a file read-only, keep what was passed in.
opened = True
conflict = True
blank = "blank"
calc = 7
alerts = True
saveCalc = True
changed = True
Set found = wb.GetWkb(App, book.Name, "", False, opened, conflict, blank, calc, alerts, saveCalc, changed)
Check "GetWkb finds the open workbook", Not (found Is Nothing)
If Not (found Is Nothing) Then CheckEq "the workbook found", found.Name, book.Name
CheckEq "rOpened is reset", opened, False
CheckEq "rConflict is reset", conflict, False
CheckEq "rBlankName is reset", blank, ""
CheckEq "rXLCalc keeps its value", calc, 7
CheckEq "rChangedCalcs keeps its value", changed, True
' The same name from another folder is a conflict.
Set found = wb.GetWkb(App, book.Name, "C:\elsewhere", True, opened, conflict)
Check "a workbook of that name from another folder is no match", found Is Nothing
CheckEq "and is reported as a conflict", conflict, True

' Sheets.
ws.NameWorksheet sheet, "Data"
CheckEq "NameWorksheet", App.ActiveSheet.Name, "Data"
landmark = ws.AssignQZWksName(sheet, "QZDirty")
Check "the sheet gets an identity", Len(landmark) > 0
CheckEq "the identity is stable", ws.AssignQZWksName(sheet, "QZDirty"), landmark
sheet.Name = "Renamed"
CheckEq "WksFromLandmark finds the sheet after a rename", ws.WksFromLandmark(book, landmark).Name, "Renamed"
CheckEq "StripWksName", ws.StripWksName("Renamed!A1:B2", stripped), "A1:B2"
CheckEq "with the sheet's name by reference", stripped, "Renamed"
App.Range("C5").Value = 1
CheckEq "QZUsedRange of the sheet", ws.QZUsedRange(sheet).Address, "$A$1:$C$5"

' SetWksCount adds sheets up to the count asked for.
Call wb.SetWksCount(book, 4)
CheckEq "SetWksCount", book.Worksheets.Count, 4

' Charts: there are none.
Set chart = CreateObject("QZXLLib.iChartXL")
CheckEq "ChartExists without charts", chart.ChartExists(book, "Chart 1"), False
CheckEq "AllCharts is an empty collection", chart.AllCharts(book).Count, 0

' A listing written into a sheet from a script's array of rows.
listing = Array(Array("Ctrl+Q", "Quit"), Array("Ctrl+S", "Save"))
Lib.NewDisplay().DisplayKeyArray listing, book.Worksheets(2), "Keys"
CheckEq "the listing's label", book.Worksheets(2).Range("A1").Value, "Keys"
