reply 7 ConfigChanged 0
fail Create 6
reply 3 ConfigChanged 0
----
* local 64 0x00840002/0/32
* create 0x00840002/0/32
* log kivomain:ClaerCache_NotifyConfigChangeMessage:507 send failed iRetCode 6
