' iFormula through COM: the tokenizer fills its by-reference formula and array of FmlaPiece
' records; rewriting returns text. Optional Booleans left out take their declared defaults.
Dim f, fm, pieces

StartSession
Set f = Lib.NewFormula()

fm = "=SUM(A1:B2)"
f.ParseCellFormula fm, pieces, False, False
CheckEq "pieces of a SUM with both switches off", Engine.Pieces(pieces), "=@1:O|SUM@2:F|(@5:O|A1:B2@6:R|)@11:O"
CheckEq "the formula is left as it was", fm, "=SUM(A1:B2)"

fm = "=A1<>B1"
f.ParseCellFormula fm, pieces, False, False
CheckEq "two operators in a row and no empty operand", Engine.Pieces(pieces), "=@1:O|A1@2:R|<@4:O|>@5:O|B1@6:R"

' The defaults (trim pieces, replace ranges) come from the type library when left out.
fm = "=SUM(A1:A3)*2"
f.ParseCellFormula fm, pieces
CheckEq "ranges are split in the written-back formula", fm, "=SUM(A1,A2,A3)*2"
CheckEq "the pieces follow the new text", Engine.Pieces(pieces), "=@1:O|SUM@2:F|(@5:O|A1@6:R|,@8:O|A2@9:R|,@11:O|A3@12:R|)@14:O|*@15:O|2@16:V"

' Text, names and sheet references.
fm = "=IF(Total>0,""yes"",Sheet2!B$3)"
f.ParseCellFormula fm, pieces, False, False
CheckEq "text and qualified references", Engine.Pieces(pieces), "=@1:O|IF@2:F|(@4:O|Total@5:R|>@10:O|0@11:V|,@12:O|""yes""@13:S|,@18:O|Sheet2!B$3@19:R|)@29:O"

fm = "=R[1]C+RC[-1]"
f.ParseCellFormulaR1C1 fm, pieces, False, False
CheckEq "R1C1 references", Engine.Pieces(pieces), "=@1:O|R[1]C@2:R|+@7:O|RC[-1]@8:R"

' Rewriting.
CheckEq "MergeRangesInSumFormula", f.MergeRangesInSumFormula("=SUM(A1,A2,A3)"), "=SUM(A1:A3)"
CheckEq "a formula without SUM is unchanged", f.MergeRangesInSumFormula("=A1+A2"), "=A1+A2"
CheckEq "AdjustR1C1Fmla moves relative references", f.AdjustR1C1Fmla("=R[1]C[-1]", 1, 1), "=R[2]C"
CheckEq "and leaves absolute ones", f.AdjustR1C1Fmla("=R1C1", 2, 3), "=R1C1"
CheckEq "offsets left out are 0", f.AdjustR1C1Fmla("=R[1]C"), "=R[1]C"
