KIVO_DebugSet info 1
KIVO_DebugSet exp -1
KIVO_DebugSet INFO 0
KIVO_DebugSet ex 1
KIVO_DebugSet NULL 1
KIVO_DebugDump
----
KIVO_DebugSet pName info  iValue 1
KIVO_DebugSet pName exp  iValue -1
KIVO_DebugSet pName INFO  iValue 0
KIVO_DebugSet pName ex  iValue 1
KIVO_DebugSet pName   iValue 1
KIVO_DebugDump
idx name       status
----------------------
 0  exp        0
 1  info       1
