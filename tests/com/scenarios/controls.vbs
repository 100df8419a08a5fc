' Form controls are the client's own objects, reached late-bound: here script classes, which
' resolve names only through IDispatchEx. Message boxes of unattended runs go to a log.
' (One declaration per Public line: the script engine here takes no lists in classes.)
Class Control
  Public Name
  Public Top
  Public Left
  Public Width
  Public Height
End Class

Class Controls
  Private items
  Private Sub Class_Initialize()
    Set items = CreateObject("Scripting.Dictionary")
  End Sub
  Public Function Add(name, top, left, width, height)
    Dim c
    Set c = New Control
    c.Name = name : c.Top = top : c.Left = left : c.Width = width : c.Height = height
    items.Add items.Count, c
    Set Add = c
  End Function
  Public Property Get Count()
    Count = items.Count
  End Property
  ' Forms number their controls from 0.
  Public Function Item(index)
    Set Item = items(index)
  End Function
  Public Sub Remove(name)
    Dim k, rest, i
    Set rest = CreateObject("Scripting.Dictionary")
    i = 0
    For Each k In items.Keys
      If items(k).Name <> name Then
        rest.Add i, items(k)
        i = i + 1
      End If
    Next
    Set items = rest
  End Sub
End Class

Class Form
  Public Controls
  Private Sub Class_Initialize()
    Set Controls = New Controls
  End Sub
End Class

Class TextBox
  Public Value
  Public Visible
  Public Enabled
  Public SelStart
  Public SelLength
  Public Locked
  Public BackColor
  Public Focused
  Private Sub Class_Initialize()
    Visible = True : Enabled = True : Focused = False
  End Sub
  Public Sub SetFocus()
    Focused = True
  End Sub
End Class

Dim ctl, frm, box, entries, fso, log, text

StartSession
Set ctl = Lib.NewControl()
Set frm = New Form

CheckEq "the first control goes at the top margin", ctl.NextControlTop(frm), 10
frm.Controls.Add "First", 10, 8, 60, 18
CheckEq "the next row goes below the last control", ctl.NextControlTop(frm), 32
CheckEq "on the same level it keeps the last control's top", ctl.NextControlTop(frm, True), 10
CheckEq "a label adjustment counts four times", ctl.NextControlTop(frm, True, 4, 1), 14
CheckEq "a new row starts at the left margin", ctl.NextControlLeft(frm), 8
CheckEq "on the same level it follows the last control", ctl.NextControlLeft(frm, True), 72
frm.Controls.Add "Second", 32, 8, 60, 18
frm.Controls.Add "Third", 54, 8, 60, 18
ctl.DeleteControls frm
CheckEq "DeleteControls removes every control", frm.Controls.Count, 0
CheckEq "an empty form starts at the margin again", ctl.NextControlTop(frm), 10

' Validation of a text box's number.
Set box = New TextBox
box.Value = "12"
CheckEq "a number within the limit is valid", ctl.IsValidNumber(box, "Copies", 20), True
box.Value = "25"
CheckEq "a number above the limit is not", ctl.IsValidNumber(box, "Copies", 20), False
Check "the box gets the focus back", box.Focused
CheckEq "and its text is selected", box.SelLength, 2
box.Value = "-3"
CheckEq "a negative number is refused unless allowed", ctl.IsValidNumber(box, "Copies"), False
CheckEq "and accepted when allowed", ctl.IsValidNumber(box, "Copies", 0, True), True
box.Value = "many"
CheckEq "text is no number", ctl.IsValidNumber(box, "Copies", 0, False, Nothing, 0, "Order"), False

' Each refusal with a name showed one message box, titled as asked.
Set fso = CreateObject("Scripting.FileSystemObject")
log = "C:\qzxl\controls.msgbox.log"
Check "the message boxes were recorded", fso.FileExists(log)
If fso.FileExists(log) Then
  text = fso.OpenTextFile(log).ReadAll()
  CheckEq "three message boxes", UBound(Split(text, vbLf)), 3
  Check "the last one has the caller's title", InStr(text, "Order|") > 0
  Check "the others the library's", InStr(text, "Quazel|") > 0
  Check "the message names the entry", InStr(text, "Copies") > 0
End If

' A locked text box.
ctl.SetLockedText box, "fixed", 255
CheckEq "SetLockedText writes the text", box.Value, "fixed"
CheckEq "and locks the box", box.Locked, True
CheckEq "in the colour given", box.BackColor, 255

' The entries of a multi-line text box, into an array of Strings by reference.
ctl.ParseTextbox "one" & vbCrLf & vbCrLf & "  two " & vbLf & "three", entries
CheckEq "blank lines are dropped", UBound(entries) - LBound(entries) + 1, 3
CheckEq "entries are trimmed", entries(LBound(entries) + 1), "two"
