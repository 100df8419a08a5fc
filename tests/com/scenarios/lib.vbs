' Shared by every scenario (the runner puts it in front of the scenario): checks that count,
' and the summary line the runner requires. A script that stops on an error never prints
' the summary, so the runner fails it.
Option Explicit

Dim gChecks, gFailures
gChecks = 0
gFailures = 0

Sub Check(what, condition)
  gChecks = gChecks + 1
  If Not condition Then
    gFailures = gFailures + 1
    WScript.Echo "FAILED: " & what
  End If
End Sub

Sub CheckEq(what, actual, expected)
  gChecks = gChecks + 1
  If VarType(actual) <> VarType(expected) And Not (IsNumeric(actual) And IsNumeric(expected)) Then
    gFailures = gFailures + 1
    WScript.Echo "FAILED: " & what & ": got " & TypeName(actual) & " " & Shown(actual) & _
                 ", expected " & TypeName(expected) & " " & Shown(expected)
  ElseIf actual <> expected Then
    gFailures = gFailures + 1
    WScript.Echo "FAILED: " & what & ": got " & Shown(actual) & ", expected " & Shown(expected)
  End If
End Sub

' Runs after "On Error Resume Next" + a call: checks that the call raised `number`.
Sub CheckRaised(what, number)
  gChecks = gChecks + 1
  If Err.Number <> number Then
    gFailures = gFailures + 1
    WScript.Echo "FAILED: " & what & ": error " & Err.Number & " (" & Err.Description & _
                 "), expected " & number
  End If
  Err.Clear
End Sub

Function Shown(v)
  If IsArray(v) Then
    Shown = "(array)"
  ElseIf IsObject(v) Then
    Shown = "(object " & TypeName(v) & ")"
  ElseIf IsNull(v) Then
    Shown = "Null"
  Else
    Shown = "[" & v & "]"
  End If
End Function

Sub Summary()
  If gFailures = 0 Then
    WScript.Echo "PASS " & gChecks & "/" & gChecks
  Else
    WScript.Echo "FAIL " & (gChecks - gFailures) & "/" & gChecks
  End If
End Sub

' A fresh engine application with one workbook, handed to a fresh factory.
Dim Engine, App, Lib
Set Engine = CreateObject("QZXLTest.Engine")
Sub StartSession()
  Set App = Engine.NewApplication()
  App.Workbooks.Add
  Set Lib = CreateObject("QZXLLib.iXLLibPublic")
  Dim nm
  nm = "scenario"
  Lib.NewPublic nm
  Lib.InitXL App
End Sub
