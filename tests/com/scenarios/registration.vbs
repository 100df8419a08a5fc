' What DllRegisterServer writes machine-wide, and that DllUnregisterServer takes it away and
' a new registration brings it back.
Dim sh, rc, obj

Set sh = CreateObject("WScript.Shell")

Function KeyValue(path)
  On Error Resume Next
  KeyValue = sh.RegRead(path)
  If Err.Number <> 0 Then KeyValue = "(missing)"
  Err.Clear
End Function

Sub CheckRegistered(when)
  CheckEq when & ": ProgID to class id", KeyValue("HKCR\QZXLLib.iXLLibPublic\CLSID\"), "{38439CAC-96DE-4FC6-9654-6D492FE43400}"
  CheckEq when & ": the chart class's ProgID", KeyValue("HKCR\QZXLLib.iChartXL\CLSID\"), "{56A6FC8D-4E89-4D13-A8A1-B514AB4CB7AA}"
  CheckEq when & ": in-process server", LCase(KeyValue("HKCR\CLSID\{38439CAC-96DE-4FC6-9654-6D492FE43400}\InprocServer32\")), "c:\qzxl\qzxllib.dll"
  CheckEq when & ": threading model", KeyValue("HKCR\CLSID\{38439CAC-96DE-4FC6-9654-6D492FE43400}\InprocServer32\ThreadingModel"), "Apartment"
  CheckEq when & ": the class names its ProgID", KeyValue("HKCR\CLSID\{56A6FC8D-4E89-4D13-A8A1-B514AB4CB7AA}\ProgID\"), "QZXLLib.iChartXL"
  CheckEq when & ": the class names its type library", KeyValue("HKCR\CLSID\{38439CAC-96DE-4FC6-9654-6D492FE43400}\TypeLib\"), "{F3E863BC-8689-44FB-B158-81781CBE88D6}"
  CheckEq when & ": the type library's help string", KeyValue("HKCR\TypeLib\{F3E863BC-8689-44FB-B158-81781CBE88D6}\1.1\"), "Quazel 1.1 Excel Library"
  Check when & ": the factory's interface is registered", KeyValue("HKCR\Interface\{00590E89-8478-49E0-8CB1-7938E7C12F22}\") <> "(missing)"
End Sub

CheckRegistered "registered"

rc = sh.Run("regsvr32 /s /u C:\qzxl\QZXLLib.dll", 0, True)
CheckEq "DllUnregisterServer succeeds", rc, 0
CheckEq "the ProgID is gone", KeyValue("HKCR\QZXLLib.iXLLibPublic\CLSID\"), "(missing)"
CheckEq "the class is gone", KeyValue("HKCR\CLSID\{38439CAC-96DE-4FC6-9654-6D492FE43400}\InprocServer32\"), "(missing)"
CheckEq "the type library is gone", KeyValue("HKCR\TypeLib\{F3E863BC-8689-44FB-B158-81781CBE88D6}\1.1\"), "(missing)"
On Error Resume Next
Set obj = CreateObject("QZXLLib.iXLLibPublic")
Check "an unregistered class cannot be created", Err.Number <> 0
Err.Clear
On Error GoTo 0

rc = sh.Run("regsvr32 /s C:\qzxl\QZXLLib.dll", 0, True)
CheckEq "DllRegisterServer succeeds again", rc, 0
CheckRegistered "registered again"
Set obj = CreateObject("QZXLLib.iXLLibPublic")
CheckEq "and the class can be created", TypeName(obj), "_iXLLibPublic"
