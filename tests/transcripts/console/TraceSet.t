# Words are cut to the buffer, 11 characters of a trace name (here) and
# 31 of a search word (Searches); what follows a cut word is still read.
type ti => 1
type ts   info   1 => 1
type ts exp4567890123 1 => 1
----
CmdTraceStatus
KIVO_DebugDump
idx name       status
----------------------
 0  exp        0
 1  info       0
CmdTraceSet
KIVO_DebugSet pName info  iValue 1
KIVO_DebugDump
idx name       status
----------------------
 0  exp        0
 1  info       1
CmdTraceSet
KIVO_DebugSet pName exp45678901  iValue 1
KIVO_DebugDump
idx name       status
----------------------
 0  exp        0
 1  info       1
