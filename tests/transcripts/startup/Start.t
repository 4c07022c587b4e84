unload
KIVO_DebugSet exp 1
KIVO_ExpInit => 0
manager => none
start => started
start => kept
backend => vornsyn
----
KIVO_DebugSet pName exp  iValue 1
KIVO_ExpInit
* tcreate kivo 67 8 KIVO_Process
* register kivo kivo KIVO_Interpreter
