type si 0
type dd
type name W
type si 7
type si
type dd
----
CmdSetInterface
CmdSetInterface  KIVO_GetIfcEnable() 0
CmdDumpDB
kivo
'--iIfcEnable        0
CmdSearchByName
KIVO_TFSearchByName  strName W
* log kivoexp:KIVO_ExpQuery:94 kivo-interface disabled
idx name                  firstname             uid                   backend
------------------------------------------------------------------------------------
CmdSetInterface
CmdSetInterface  KIVO_GetIfcEnable() 7
CmdSetInterface
CmdSetInterface  KIVO_GetIfcEnable() 0
CmdDumpDB
kivo
'--iIfcEnable        0
