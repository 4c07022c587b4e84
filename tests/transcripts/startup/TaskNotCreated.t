unload
fail TaskCreate 7
KIVO_ExpInit => 7
----
* tcreate kivo
* log kivoexp:KIVO_ExpInit:69 unable to create process iRetCode 7
