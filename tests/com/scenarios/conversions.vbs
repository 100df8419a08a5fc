' How values cross the boundary: by-reference arguments of every declared type written back
' into script variables, optional arguments left out, 1-based arrays, records, dates, errors,
' Null, text beyond ASCII, two-dimensional blocks, and refusals as runtime error numbers.
Dim r, ws, pieces, adj, s, n, book, sheet, v, cell, byRow, last, names, sizes, x, i

StartSession
Set r = Lib.NewRange()
Set ws = Lib.NewWorksheet()

' A String by reference, optional: given, it receives the part stripped off; left out, the
' call works all the same.
book = "untouched"
CheckEq "StripWkbName result", Lib.NewWorkbook().StripWkbName("[Book1.xlsx]Sheet1!A1", book), "Sheet1!A1"
CheckEq "StripWkbName writes the workbook name back", book, "Book1.xlsx"
CheckEq "StripWkbName without the by-reference part", Lib.NewWorkbook().StripWkbName("[Book1.xlsx]Sheet1!A1"), "Sheet1!A1"
sheet = 42
CheckEq "StripWksName result", ws.StripWksName("'My Sheet'!B2", sheet, True), "B2"
CheckEq "a number variable receives text", sheet, "My Sheet"
CheckEq "and becomes a String", TypeName(sheet), "String"

' An array of Strings and a Long, both by reference.
s = r.SplitRange("A1:B2", pieces, adj)
CheckEq "SplitRange result", s, "A1,B1,A2,B2"
CheckEq "the pieces start at 1", LBound(pieces), 1
CheckEq "one piece per cell", UBound(pieces), 4
CheckEq "first piece", pieces(1), "A1"
CheckEq "last piece", pieces(4), "B2"
CheckEq "the length adjustment is a Long", TypeName(adj), "Long"
CheckEq "the length adjustment", adj, Len(s) - Len("A1:B2")
n = 0
For Each x In pieces
  n = n + 1
Next
CheckEq "For Each over the pieces", n, 4
' The same variable again: the old array is replaced, not appended to.
s = r.SplitRange("C3", pieces)
CheckEq "a second SplitRange replaces the array", UBound(pieces), 1
CheckEq "with its own piece", pieces(1), "C3"

' A Boolean by reference, optional: left out it means "by row".
App.Range("A1").Value = 1
App.Range("C2").Value = 1
Set last = r.LastCellInRange(App.Range("A1:C3"))
CheckEq "LastCellInRange without the switch", last.Address(False, False), "C3"
byRow = False
Set last = r.LastCellInRange(App.Range("A1:C3"), byRow)
CheckEq "LastCellInRange by column", last.Address(False, False), "C3"

' The formula tokenizer's array of records and its by-reference formula.
v = "=SUM(A1:B2)+1"
Dim f
Set f = Lib.NewFormula()
f.ParseCellFormula v, pieces, False, False
CheckEq "records arrive as an array", VarType(pieces), vbArray + 36
CheckEq "the tokenizer's pieces", Engine.Pieces(pieces), "=@1:O|SUM@2:F|(@5:O|A1:B2@6:R|)@11:O|+@12:O|1@13:V"
CheckEq "the record array starts at 1", Engine.LowerBound(pieces), 1
v = "=SUM(A1:A2)"
f.ParseCellFormula v, pieces
CheckEq "ranges in the formula are written back", v, "=SUM(A1,A2)"
CheckEq "and the pieces follow", Engine.Pieces(pieces), "=@1:O|SUM@2:F|(@5:O|A1@6:R|,@8:O|A2@9:R|)@11:O"

' Optional Variants by reference: only those given are filled.
App.Range("D1").Value = "abc"
names = "keep"
r.ExtractChrProperties App.Range("D1"), names, , sizes
CheckEq "font names come back 1-based", LBound(names), 1
CheckEq "one font name for the whole cell", UBound(names), 1
CheckEq "the font name", names(1), App.Range("D1").Font.Name
CheckEq "sizes are filled too", sizes(1), App.Range("D1").Font.Size

' Values of cells, through the library: dates, errors, text, Booleans.
App.Range("E1").Value = 46340
App.Range("E1").NumberFormat = "m/d/yyyy"
CheckEq "a date cell's value is a Date", TypeName(App.Range("E1").Value), "Date"
CheckEq "CellType of a date", r.CellType(App.Range("E1")), 5
App.Range("E2").Formula = "=1/0"
CheckEq "an error cell's value is an Error", VarType(App.Range("E2").Value), vbError
CheckEq "CellType of an error", r.CellType(App.Range("E2")), 4
App.Range("E3").Value = True
CheckEq "CellType of a Boolean", r.CellType(App.Range("E3")), 3
CheckEq "CellType of an empty cell", r.CellType(App.Range("E9")), 1

' Mixed formats read as Null.
App.Range("F1").Font.Bold = True
Check "Font.Bold over a mixed range is Null", IsNull(App.Range("F1:F2").Font.Bold)

' Text beyond ASCII, and characters outside the basic plane (two UTF-16 units each).
App.ActiveWorkbook.Worksheets.Add.Name = "Übersicht"
CheckEq "a sheet name beyond ASCII reaches the host", App.ActiveSheet.Name, "Übersicht"
CheckEq "MergeRanges with an accented sheet name", r.MergeRanges("Übersicht!A1,Übersicht!A2"), "Übersicht!A1:A2"
App.Range("K1").Formula = "=UNICHAR(128512)"
s = App.Range("K1").Value
CheckEq "a character outside the basic plane is two units", Len(s), 2
CheckEq "and crosses the test host unchanged", Engine.Echo(s), s
Call Lib.NewWorkbook().StripWkbName("[" & s & "Plan.xlsx]Data!A1", book)
CheckEq "and the library's by-reference text", book, s & "Plan.xlsx"

' Blocks of values are two-dimensional arrays, as the application hands them out.
App.Range("G1").Value = 1
App.Range("H1").Value = "x"
App.Range("G2").Value = True
v = App.Range("G1:H2").Value
CheckEq "a block's rows", UBound(v, 1), 2
CheckEq "a block's columns", UBound(v, 2), 2
CheckEq "row 1, column 2", v(1, 2), "x"
CheckEq "row 2, column 1", v(2, 1), True
Check "an empty cell in a block is Empty", IsEmpty(v(2, 2))

' Arrays from scripts are 0-based and keep their bounds on the way in and out.
x = Engine.Echo(Array(1, "a", Null))
CheckEq "a script array keeps its lower bound", LBound(x), 0
Check "and its Null", IsNull(x(2))
' Dates and Booleans keep their types through the boundary.
CheckEq "a Date stays a Date", TypeName(Engine.Echo(DateSerial(2026, 11, 14))), "Date"
CheckEq "a Boolean stays a Boolean", Engine.TypeOf(True), "Boolean"
CheckEq "an Integer stays an Integer", Engine.TypeOf(1), "Integer"
CheckEq "a Double stays a Double", Engine.TypeOf(1.5), "Double"
CheckEq "an object passes as itself", Engine.TypeOf(App), "Application"
CheckEq "Nothing passes as Nothing", Engine.TypeOf(Nothing), "Nothing"

' A host refusal reaches a script as the runtime's error number and text.
On Error Resume Next
adj = "not a number"
s = r.SplitRange("A1", pieces, adj)
CheckRaised "text that is no number for a Long by reference", 13
CheckEq "and the variable keeps its text", adj, "not a number"
Set x = App.Workbooks("NoSuchBook.xlsx")
CheckRaised "a missing workbook is error 9", 9
x = App.NoSuchMember
CheckRaised "an unknown member is error 438", 438
' By-reference write-back through the test host too.
v = 1
Engine.Assign v, "changed"
CheckEq "a by-reference Variant is written back", v, "changed"
On Error GoTo 0
