' An add-in at work through COM: its product and undo callback, AutoColor hooked to the
' application's entries, a person typing into the engine, the library's Undo and Redo of what
' AutoColor did, range and cell runs, Ctrl+Enter, a client's own undo unit and its veto.
' The application runs the add-in's macros by name, and they call back into the library while
' the person's action is still under way, so every call crosses both boundaries twice.

' The product's UndoRedoIF: the library runs the client's own undo and redo macros through it
' and asks it whether a cell keeps its colour.
Class ClientCallback
  Public Ran
  Public KeepColour
  Public ColoursAsked
  Private Sub Class_Initialize()
    Ran = ""
    KeepColour = False
    ColoursAsked = ""
  End Sub
  Public Sub RunMacro(name)
    Ran = Ran & name & ";"
  End Sub
  Public Function DoNotAutoColor(colour)
    ColoursAsked = ColoursAsked & colour & ";"
    DoNotAutoColor = KeepColour
  End Function
End Class

' The add-in's module: each macro only calls the library method of its name.
Class ClientModule
  Public Sub QZUndo()
    UR.QZUndo
  End Sub
  Public Sub QZRedo()
    UR.QZRedo
  End Sub
  Public Sub SetQZUndo()
    UR.SetQZUndo
  End Sub
  Public Sub RunAutoColor()
    AC.RunAutoColor
  End Sub
  Public Sub ToggleAutoColor()
    AC.ToggleAutoColor
  End Sub
  Public Sub CtrlEnter()
    AC.UpdateCtrlEnter
  End Sub
End Class

Const Blue = 16711680
Const Red = 255
Const Green = 32768
Dim AC, UR, Person, Module, callback, product, veto, button, cell, a

StartSession
Set AC = Lib.NewAutoColor()
Set UR = Lib.NewUndoRedo()
Set Person = Engine.NewUser(App)
Set Module = New ClientModule
For Each a In Array("QZUndo", "QZRedo", "SetQZUndo")
  Engine.RegisterMacro App, a, Module, a
Next
Engine.RegisterMacro App, "mDOM.RunAutoColor", Module, "RunAutoColor"
Engine.RegisterMacro App, "mDOM.ToggleAutoColor", Module, "ToggleAutoColor"
Engine.RegisterMacro App, "mDOM.CtrlEnter", Module, "CtrlEnter"
Engine.OnKey App, "^~", "mDOM.CtrlEnter"

' The product and its callback, as the add-in registers them at start-up.
Set product = Lib.NewProduct("QZModel", True, "Model")
Set callback = New ClientCallback
UR.Subscribe "QZModel", callback
Check "the product hands back the very callback it was given", product.UndoRedoIF Is callback
CheckEq "the product's name", product.Name, "Model"

' The colours the rules give, set through the library (the registry keeps them).
CheckEq "SetInputColor", AC.SetInputColor(Blue), Blue
CheckEq "SetFormulaColor", AC.SetFormulaColor(Green), Green
CheckEq "InputColor reads back", AC.InputColor, Blue

' The on-entry button on the Format menu; AutoColor on hooks the application's entries.
Set button = AC.CreateAutoColorMenuBtn(Lib.NewMenu().FormatMenu())
Check "SetAutoColorOn", AC.SetAutoColorOn(True)
CheckEq "the application runs the add-in's macro after every entry", App.OnEntry, "mDOM.RunAutoColor"
CheckEq "the button is pressed", button.State, -1
CheckEq "the button toggles through the add-in", button.OnAction, "mDOM.ToggleAutoColor"

' A typed formula of values takes the input colour and is undone as the library's own step.
Set cell = App.Range("B2")
cell.Formula = "7"
cell.NumberFormat = "0.0"
cell.Font.Color = Red
Person.Type "B2", "=100+20"
CheckEq "the entry", cell.Formula, "=100+20"
CheckEq "the entry's colour", cell.Font.Color, Blue
CheckEq "the entry keeps the cell's format", cell.NumberFormat, "0.0"
CheckEq "Undo is the library's", Person.UndoCaption, "&Undo Text Entry (QZ)"
Person.PressUndo
CheckEq "Undo takes the entry back", cell.Formula, "7"
CheckEq "and its colour", cell.Font.Color, Red
CheckEq "Redo is offered", Person.RedoCaption, "&Redo Text Entry (QZ)"
Person.PressRedo
CheckEq "Redo brings the entry again", cell.Formula, "=100+20"
CheckEq "with its colour", cell.Font.Color, Blue
Person.Type "B3", "=B2"
CheckEq "a formula of references only takes the formula colour", App.Range("B3").Font.Color, Green

' Ctrl+Enter: one entry in every selected cell, one colour, one step to undo.
Person.Select "D1:E2"
Person.CtrlEnter "5"
For Each a In Array("D1", "E1", "D2", "E2")
  CheckEq "Ctrl+Enter colours " & a, App.Range(a).Font.Color, Blue
Next
Person.PressUndo
For Each a In Array("D1", "E1", "D2", "E2")
  CheckEq "one Undo empties " & a, App.Range(a).Formula, ""
Next

' Runs over a range and over one cell, as a macro asks for them.
App.Range("G1").Formula = "=1+2"
App.Range("G3").Formula = "=G1"
AC.AutoColorRange App.Range("G1:G3"), "Block"
CheckEq "AutoColorRange colours values", App.Range("G1").Font.Color, Blue
CheckEq "and formulas", App.Range("G3").Font.Color, Green
CheckEq "the run is one step to undo", Person.UndoCaption, "&Undo Block (QZ)"
Person.PressUndo
CheckEq "Undo takes the run's colours back", App.Range("G1").Font.Color, 0
CheckEq "from every cell", App.Range("G3").Font.Color, 0
App.Range("H1").Formula = "=G1+G3"
AC.AutoColorCell App.Range("H1"), False
CheckEq "AutoColorCell", App.Range("H1").Font.Color, Green

' A client's own undo unit: Undo and Redo run its macros through the callback.
UR.SetCustomUndo "QZModel", "UndoLinks", "RedoLinks", "Paste Links"
CheckEq "the client's step is offered", Person.UndoCaption, "&Undo Paste Links (QZ)"
Person.PressUndo
CheckEq "Undo ran the client's macro", callback.Ran, "UndoLinks;"
CheckEq "and offers its Redo", Person.RedoCaption, "&Redo Paste Links (QZ)"
Person.PressRedo
CheckEq "Redo ran the other", callback.Ran, "UndoLinks;RedoLinks;"
UR.ClearStacks

' The product that may keep a cell's colour is asked with the colour the cell has.
Set veto = New ClientCallback
veto.KeepColour = True
Lib.NewProduct "RivuletXL", True, "Rivulet"
UR.Subscribe "RivuletXL", veto
App.Range("J1").Font.Color = Red
Person.Type "J1", "42"
CheckEq "a vetoed cell keeps its colour", App.Range("J1").Font.Color, Red
CheckEq "the veto was asked with that colour", veto.ColoursAsked, Red & ";"
Lib.RemoveProduct "RivuletXL"

' Clicking the button turns AutoColor off: entries are left alone and are the person's to undo.
Person.Click button
CheckEq "the click turned AutoColor off", AC.AutoColorOn, False
CheckEq "and unhooked the entries", App.OnEntry, ""
CheckEq "and raised the button", button.State, 0
Person.Type "K1", "5"
CheckEq "an entry with AutoColor off", App.Range("K1").Font.Color, 0
CheckEq "Undo is the application's own", Person.UndoCaption, "&Undo Typing"
Person.Click button
CheckEq "a second click turns it on again", AC.AutoColorOn, True
