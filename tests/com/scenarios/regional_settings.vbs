' locale: de_DE.UTF-8
' The library in a German application: the runner starts the script host with a German user
' locale, and the session takes the user's regional settings as it starts. "1,5" is then a
' number to the library as to the application, "1.234,50" and "5 €" too, where an en-US
' reading would take them for text. (The script host's ChrW stops at 255 under Wine: the
' euro sign is written as itself.)
Dim r, f, pieces, v, ac

StartSession
Set r = Lib.NewRange()
Set f = Lib.NewFormula()
Set ac = Lib.NewAutoColor()

' Typed as a German user types them, an amount with a decimal comma is a number (the
' application reads the entry in the same settings).
App.Range("B1").Formula = "1,5"
CheckEq "the entry is one and a half", App.Range("B1").Value, 1.5
CheckEq "shown with the decimal comma", App.Range("B1").Text, "1,5"
CheckEq "CellType of 1,5", r.CellType(App.Range("B1")), 8
CheckEq "IsInput of 1,5", r.IsInput(App.Range("B1")), True
App.Range("B2").Formula = "=B1+B1"
CheckEq "a formula over it is no input", r.IsInput(App.Range("B2")), False

' Text that reads as a German number: the text stays text, but it is numeric, and forced
' text of digits counts as an input.
App.Range("C1").Formula = "'1.234,50"
CheckEq "CellType of forced text", r.CellType(App.Range("C1")), 2
CheckEq "IsInput of numeric text", r.IsInput(App.Range("C1")), True
App.Range("C2").Formula = "'$5"
CheckEq "an amount in dollars is no number here", r.IsInput(App.Range("C2")), False

' The tokenizer's numeric test: the whole text of a cell without a formula.
For Each v In Array("1,5", "1.234,50", "5 €", "-5 €")
  f.ParseCellFormula v, pieces
  CheckEq "a value: " & v, Engine.Pieces(pieces), v & "@1:V"
Next
For Each v In Array("$5", "1,2,3", "5 CHF")
  f.ParseCellFormula v, pieces
  CheckEq "no value: " & v, Engine.Pieces(pieces), v & "@1:S"
Next

' AutoColor colours the typed amount as an input and the formula as a formula, in the
' default colours (the registry keeps what earlier scenarios set, so set them here).
ac.SetInputColor 16711680
ac.SetFormulaColor 0
ac.AutoColorCell App.Range("B1")
ac.AutoColorCell App.Range("B2")
CheckEq "the typed amount takes the input colour", App.Range("B1").Font.Color, 16711680
CheckEq "the formula takes the formula colour", App.Range("B2").Font.Color, 0
