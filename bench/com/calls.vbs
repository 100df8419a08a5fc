' Cost of one call across the COM boundary, as a script client pays it: the library's typed
' Invoke (a constant, a classification that calls back into the application, the tokenizer
' with its by-reference array) and the test host's generic one. Each operation has a loop of
' its own, the same loop as the empty one, so that the empty loop's cost can be taken off
' (this script engine has neither GetRef nor Execute, hence the repetition). Each timing is
' the best of five rounds, in microseconds per call.
Dim eng, app, lib, r, c, f, cell, fm, p, x

Set eng = CreateObject("QZXLTest.Engine")
Set app = eng.NewApplication()
app.Workbooks.Add
Set lib = CreateObject("QZXLLib.iXLLibPublic")
lib.InitXL app
Set r = lib.NewRange()
Set c = lib.NewConst()
Set f = lib.NewFormula()
app.Range("A1").Value = 5
Set cell = app.Range("A1")

Function EmptyLoop(n)
  Dim i, t
  t = eng.Clock()
  For i = 1 To n
    x = i
  Next
  EmptyLoop = eng.Clock() - t
End Function

Function Constant(n)
  Dim i, t
  t = eng.Clock()
  For i = 1 To n
    x = c.qzPlum
  Next
  Constant = eng.Clock() - t
End Function

Function Classify(n)
  Dim i, t
  t = eng.Clock()
  For i = 1 To n
    x = r.CellType(cell)
  Next
  Classify = eng.Clock() - t
End Function

Function Tokenize(n)
  Dim i, t
  t = eng.Clock()
  For i = 1 To n
    fm = "=SUM(A1:B2)+IF(C1>0,1,2)"
    f.ParseCellFormula fm, p
  Next
  Tokenize = eng.Clock() - t
End Function

Function CellValue(n)
  Dim i, t
  t = eng.Clock()
  For i = 1 To n
    x = cell.Value
  Next
  CellValue = eng.Clock() - t
End Function

' Microseconds per pass of loop `which`, the best of five rounds of n passes.
Function Best(which, n)
  Dim round, used, least
  least = 1E+30
  For round = 1 To 5
    Select Case which
      Case "empty": used = EmptyLoop(n)
      Case "constant": used = Constant(n)
      Case "classify": used = Classify(n)
      Case "tokenize": used = Tokenize(n)
      Case "value": used = CellValue(n)
    End Select
    If used < least Then least = used
  Next
  Best = least / n * 1000000
End Function

Dim loopCost
loopCost = Best("empty", 20000)
WScript.Echo "script loop alone:                      " & FormatNumber(loopCost, 2) & " us"
WScript.Echo "iXLLibConst.qzPlum (typed Invoke):      " & FormatNumber(Best("constant", 20000) - loopCost, 2) & " us"
WScript.Echo "iRange.CellType (calls back 4-6 times): " & FormatNumber(Best("classify", 5000) - loopCost, 2) & " us"
WScript.Echo "iFormula.ParseCellFormula (13 pieces):  " & FormatNumber(Best("tokenize", 5000) - loopCost, 2) & " us"
WScript.Echo "test host Range.Value (generic Invoke): " & FormatNumber(Best("value", 20000) - loopCost, 2) & " us"
