' Nothing where a member wants an object, and the session gone from under a caller: each
' call leaves its result at its default and raises nothing, and the script (the client's
' process) goes on.
Dim r, f, p, fm, pieces, runs

StartSession
Set r = Lib.NewRange()
Set f = Lib.NewFormula()
App.Range("A1").Formula = "=1+1"

On Error Resume Next
r.CopyNoFmlas Nothing, App.Range("C1"), True, True
CheckRaised "CopyNoFmlas from Nothing", 0
r.CopyNoFmlas App.Range("A1"), Nothing, False, False
CheckRaised "CopyNoFmlas to Nothing", 0
runs = r.ExtractChrScripts(App.Range("A1"))
r.InfuseChrScripts Nothing, runs
CheckRaised "InfuseChrScripts on Nothing", 0
r.InfuseChrProperties Nothing, runs, runs, runs, runs, runs, runs, runs
CheckRaised "InfuseChrProperties on Nothing", 0
Check "ExtractChrScripts of Nothing is Empty", IsEmpty(r.ExtractChrScripts(Nothing))
CheckRaised "ExtractChrScripts of Nothing", 0
Lib.NewChartXL().ChartActivate Nothing
CheckRaised "ChartActivate on Nothing", 0
On Error GoTo 0
CheckEq "the source cell is as it was", App.Range("A1").Formula, "=1+1"
CheckEq "nothing was copied", App.Range("C1").Formula, ""

' The last product leaves: the session lets go of its services. Callers that still hold
' objects get nothing done: a range that cannot be split drops out of the formula, as any
' failed expansion does.
Set p = Lib.NewProduct("Leaving", True)
Lib.RemoveProduct "Leaving"
On Error Resume Next
fm = "=SUM(A1:A3)"
f.ParseCellFormula fm, pieces
CheckRaised "ParseCellFormula with ranges to split", 0
CheckEq "the range could not be split", fm, "=SUM()"
CheckEq "MergeRangesInSumFormula", f.MergeRangesInSumFormula("=SUM(A1,A2)"), "=SUM(A1,A2)"
CheckRaised "MergeRangesInSumFormula", 0
On Error GoTo 0
