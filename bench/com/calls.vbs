' Cost of one call across the COM boundary, as a script client pays it: the library's typed
' Invoke (a constant, a classification that calls back into the application, the tokenizer
' with its by-reference array) and the test host's generic one. Each timing is the best of
' five rounds, in microseconds per call.
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

Function Best(what, n)
  Dim round, i, t, used, least
  least = 1E+30
  For round = 1 To 5
    t = eng.Clock()
    For i = 1 To n
      Select Case what
        Case 1: x = c.qzPlum
        Case 2: x = r.CellType(cell)
        Case 3: fm = "=SUM(A1:B2)+IF(C1>0,1,2)" : f.ParseCellFormula fm, p
        Case 4: x = cell.Value
        Case 5: x = i
      End Select
    Next
    used = eng.Clock() - t
    If used < least Then least = used
  Next
  Best = least / n * 1000000
End Function

Dim loopCost
loopCost = Best(5, 20000)
WScript.Echo "script loop alone:                      " & FormatNumber(loopCost, 2) & " us"
WScript.Echo "iXLLibConst.qzPlum (typed Invoke):      " & FormatNumber(Best(1, 20000) - loopCost, 2) & " us"
WScript.Echo "iRange.CellType (calls back 4-6 times): " & FormatNumber(Best(2, 5000) - loopCost, 2) & " us"
WScript.Echo "iFormula.ParseCellFormula (13 pieces):  " & FormatNumber(Best(3, 5000) - loopCost, 2) & " us"
WScript.Echo "test host Range.Value (generic Invoke): " & FormatNumber(Best(4, 20000) - loopCost, 2) & " us"
