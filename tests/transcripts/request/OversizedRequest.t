# A search value as long as a whole message (MAN_MAX_MSG): the request cannot be made.
search NameAlpha "x"*65536
----
* timer 67 5000 0x00000002/0/0 u32 0
* create 0x00000000/0/65671
* error kivomain:startQuery:273 cMsg.Create failed

