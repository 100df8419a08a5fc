' Menus and products through COM: the application's command bars handed out and taken back
' in, controls made with optional arguments left out in the middle, a click that runs the
' add-in's macro, the product's own menu, and the end of the session when the last product
' leaves.

' The add-in's module, whose macro the buttons name.
Class ClientModule
  Public Clicks
  Private Sub Class_Initialize()
    Clicks = 0
  End Sub
  Public Sub Go()
    Clicks = Clicks + 1
  End Sub
End Class

Dim m, bar, tools, popup, button, toolbar, product, made, person, module, ur

StartSession
Set m = Lib.NewMenu()
Set person = Engine.NewUser(App)
Set module = New ClientModule
Engine.RegisterMacro App, "mX.Go", module, "Go"

' Built-in menus are found by their ids, on the bars the library hands out.
Set bar = m.MainMenuBar()
CheckEq "the worksheet menu bar", bar.Name, "Worksheet Menu Bar"
CheckEq "the chart menu bar", m.ChartMenuBar().Name, "Chart Menu Bar"
Set tools = m.ToolsMenu()
CheckEq "the Tools menu by its id", tools.Id, 30007
Check "the Tools menu sits on the worksheet bar", tools.Parent Is bar
Check "the chart bar has a Tools menu of its own", Not (m.ToolsMenu(True) Is tools)
CheckEq "Undo says what it would do", m.UndoButton().Caption, "Can't &Undo"
person.Type "B2", "1"
CheckEq "and follows the person's typing", m.UndoButton().Caption, "&Undo Typing"

' A popup before the third item; a button in it with the middle arguments left out.
Set popup = m.CreatePopup(tools, "&Model", , 3)
CheckEq "the popup's place", popup.Index, 3
CheckEq "the popup's caption", popup.Caption, "&Model"
Set button = m.CreateBtn("&Go", "mX.Go", popup, , , 59, True, "Ctrl+G", "go")
Check "the button is in the popup", button.Parent Is popup
CheckEq "its face", button.FaceId, 59
CheckEq "its shortcut text", button.ShortcutText, "Ctrl+G"
CheckEq "its tag", button.Tag, "go"
Check "a button without a popup is Nothing", m.CreateBtn("&Lost") Is Nothing
person.Click button
person.Click button
CheckEq "clicks run the add-in's macro", module.Clicks, 2

' A toolbar under its name, once.
Set toolbar = m.CreateToolbar("Model Tools", , True, False)
CheckEq "the toolbar's name", toolbar.Name, "Model Tools"
CheckEq "hidden as asked", toolbar.Visible, False
Check "the application knows it by name", App.CommandBars("model tools") Is toolbar
Check "a second toolbar of that name is refused", m.CreateToolbar("Model Tools") Is Nothing

' The product's menu goes in front of Help and is found again by its mark.
Set product = Lib.NewProduct("QZModel", True, "Model")
Set made = product.CreateProductMenu()
CheckEq "the product menu's caption", made.Caption, "Quazel Model"
CheckEq "in front of Help", made.Index + 1, m.HelpMenu().Index
Check "ProductMenu finds it again", product.ProductMenu() Is made
Check "there is none on the chart bar", product.ProductMenu(True) Is Nothing

' The last product to leave ends the session and hands Undo back to the application.
Set ur = Lib.NewUndoRedo()
Set product.UndoRedoIF = module
ur.SetCustomUndo "QZModel", "Go", "Go", "Step"
CheckEq "the library's step is offered", m.UndoButton().Caption, "&Undo Step (QZ)"
Lib.RemoveProduct "QZModel"
CheckEq "Undo is the application's own again", person.UndoCaption, "&Undo Typing"
On Error Resume Next
Lib.RemoveProduct "QZModel"
CheckRaised "removing it again raises nothing", 0
On Error GoTo 0
