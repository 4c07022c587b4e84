unload
KIVO_ExpInit => 0
contact c backend=source uid=u-1 last=Wefer
event e backend=source uid=ev-1 kind=missed number=0711
KIVO_ExpQuery Number => -1
KIVO_ExpAddContact c => -1
KIVO_ExpDelContact c => -1
KIVO_ExpAddEvent e => -1
KIVO_ExpDelEvent e => -1
message KIVO_PRIM_TIMER u32 0
message KIVO_PRIM_RESULT str "{}"
----
* tcreate kivo 67 8 KIVO_Process
* register kivo kivo KIVO_Interpreter
* error kivomain:KIVO_Query:703 kivo task not started
~0 requestFinished
~0 released
* error kivomain:KIVO_AddContact:723 kivo task not started
* error kivomain:KIVO_DelContact:743 kivo task not started
* error kivomain:KIVO_AddEvent:763 kivo task not started
* error kivomain:KIVO_DelEvent:783 kivo task not started
* log kivomain:KIVO_QueryTimeout:831 no backend yet, timer 0 dropped
* log kivomain:KIVO_QueryResult:841 no backend yet, result dropped
