unload
KIVO_ExpInit
deliver control 2
deliver 7 1
KIVO_InitDb
manager => none
----
* tcreate kivo 67 8 KIVO_Process
* register kivo kivo KIVO_Interpreter
