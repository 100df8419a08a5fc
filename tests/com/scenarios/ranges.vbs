' iRange over the engine through both boundaries: classification, navigation, addresses,
' tags (which add hidden names with the named arguments Name:=, RefersTo:=, Visible:=),
' landmarks and character runs.
Dim r, c, sheet, wksName, landmark, created, ok, nm, runs, names, styles, sizes, scripts, cell

StartSession
Set r = Lib.NewRange()
Set c = Lib.NewConst()
Set sheet = App.ActiveSheet

' Classification.
App.Range("A1").Value = "text"
App.Range("A2").Value = 12.5
App.Range("A3").Formula = "=A2*2"
App.Range("A4").Value = False
App.Range("A5").Value = 46340.5
App.Range("A5").NumberFormat = "m/d/yyyy h:mm"
App.Range("A6").Value = 930
App.Range("A6").NumberFormat = "0"":""00"
CheckEq "text", r.CellType(App.Range("A1")), c.qzCellText
CheckEq "a number", r.CellType(App.Range("A2")), c.qzCellNumeric
CheckEq "a formula's number", r.CellType(App.Range("A3")), c.qzCellNumeric
CheckEq "a Boolean", r.CellType(App.Range("A4")), c.qzCellBool
CheckEq "a date and time", r.CellType(App.Range("A5")), c.qzCellDateTime
CheckEq "a number shown with a colon is a time", r.CellType(App.Range("A6")), c.qzCellTime
App.Range("A7").Value = 0.75
App.Range("A7").NumberFormat = "h:mm"
CheckEq "a date value shown as a time is a date and time", r.CellType(App.Range("A7")), c.qzCellDateTime
CheckEq "a typed number is an input", r.IsInput(App.Range("A2")), True
CheckEq "a formula is none", r.IsInput(App.Range("A3")), False

' Navigation returns the application's own ranges.
App.Range("C1").Value = 1
App.Range("E1").Value = 1
CheckEq "NextRight skips to the next filled cell", r.NextRight(App.Range("C1")).Address, "$E$1"
CheckEq "FromHereDown spans to the sheet's edge", r.FromHereDown(App.Range("A2")).Address, "$A$2:$A$1048576"
CheckEq "and without the cell itself", r.FromHereDown(App.Range("A2"), True).Address, "$A$3:$A$1048576"
Check "FromHereLeft from the first column, without the cell, is Nothing", r.FromHereLeft(App.Range("A5"), True) Is Nothing

' Addresses through the application and the workbook.
CheckEq "RangeFromAddr", r.RangeFromAddr(App, App.ActiveWorkbook.Name, sheet.Name & "!B2").Address, "$B$2"
CheckEq "RefRange", r.RefRange(App.ActiveWorkbook, sheet.Name & "!C3:D4").Address, "$C$3:$D$4"
Check "RefRange of a sheet that does not exist is Nothing", r.RefRange(App.ActiveWorkbook, "NoSheet!A1") Is Nothing

' Tags: AssignRangeTag adds a hidden name through Names.Add with named arguments and hands
' the sheet's identity and the landmark back by reference.
created = False
ok = r.AssignRangeTag(App.Range("B2:C3"), wksName, landmark, "QZDirty", created)
CheckEq "AssignRangeTag succeeds", ok, True
CheckEq "it created a tag", created, True
Check "the sheet has an identity", Len(wksName) > 0
CheckEq "the landmark is a tag", Left(landmark, 5) & Right(landmark, 4), "_bqz..eqz"
Set nm = sheet.Names(landmark)
CheckEq "the tag is hidden (Visible:=False arrived)", nm.Visible, False
CheckEq "and refers to the range (RefersTo:= a Range arrived)", nm.RefersToRange.Address, "$B$2:$C$3"
CheckEq "the workbook is marked as having new tags", App.ActiveWorkbook.CustomDocumentProperties("QZDirty").Value, "true"
' A second call finds the name and keeps the landmark it is given back.
created = False
ok = r.AssignRangeTag(App.Range("B2:C3"), wksName, landmark, "QZDirty", created)
CheckEq "the second call leaves rDidCreate alone", created, False
CheckEq "FindQZTag on the range", r.FindQZTag(App.Range("B2:C3")), landmark
CheckEq "SrchForQZTag inside the block", r.SrchForQZTag(App.Range("C3")), landmark
CheckEq "SrchForQZCellTag wants exactly the tagged range", r.SrchForQZCellTag(App.Range("C3")), ""
CheckEq "RangeFromLandmark finds it again", r.RangeFromLandmark(App.ActiveWorkbook, landmark, wksName).Address, "$B$2:$C$3"
App.Range("B1").EntireRow.Insert
CheckEq "after a row is inserted the landmark follows", r.RangeFromLandmark(App.ActiveWorkbook, landmark, wksName).Address, "$B$3:$C$4"
CheckEq "RangeNameFriendly of a hidden tag", r.RangeNameFriendly(nm), "Auto-generated range name"
r.EraseNamesInRange App.Range("C4")
CheckEq "EraseNamesInRange deletes the tag", r.FindQZTag(App.Range("B3:C4")), ""

' Character runs: a snapshot of seven properties, by reference, put back after a rewrite.
Set cell = App.Range("G1")
cell.Value = "x2"
cell.Characters(2, 1).Font.Superscript = True
cell.Font.Bold = True
' Arguments left out in the middle are "missing", and only those given are filled.
r.ExtractChrProperties cell, names, styles, , , , scripts
Check "sizes were not asked for", IsEmpty(sizes)
CheckEq "scripts come per character when they differ", UBound(scripts), 2
cell.Value = "x2"
cell.Font.Bold = False
cell.Font.Superscript = False
r.InfuseChrProperties cell, names, styles, , , , scripts
CheckEq "the style came back", cell.Font.Bold, True
runs = r.ExtractChrScripts(cell)
CheckEq "scripts are kept per character", UBound(runs), 2
CheckEq "the second character is superscript again", runs(2), 1
