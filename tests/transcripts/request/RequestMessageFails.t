# The timer's message is created first, the request's second; an entry
# whose request was not sent waits for its timer.
contact c
event e
fail Create 3 1
search
fail Create 4 1
addContact c
fail Create 5 1
deleteContact c
fail Create 6 1
addEvent e
fail Create 7 1
deleteEvent e
expire 0
expire 4
----
* timer 67 5000 0x00000002/0/0 u32 0
* create 0x00000000/0/136
* error kivomain:startQuery:273 cMsg.Create failed

* timer 67 5000 0x00000002/0/0 u32 1
* create 0x00830001/0/458
* error kivomain:addContact:330 cMsg.Create failed

* timer 67 5000 0x00000002/0/0 u32 2
* create 0x00830001/0/133
* error kivomain:deleteContact:384 cMsg.Create failed

* timer 67 5000 0x00000002/0/0 u32 3
* create 0x00830001/0/258
* error kivomain:addEvent:438 cMsg.Create failed

* timer 67 5000 0x00000002/0/0 u32 4
* create 0x00830001/0/131
* error kivomain:deleteEvent:492 cMsg.Create failed

* fire 0
~0 finished 1
~0 released
* fire 4
