# The task is kept and still starts.
unload
fail Register 9
KIVO_ExpInit => 9
start => started
----
* tcreate kivo 67 8 KIVO_Process
* register kivo
* log kivoexp:KIVO_ExpInit:76 unable to register testmenue 9
