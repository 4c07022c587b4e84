# Three change requests, ids 0 to 2.
contact c
event e
addContact c
deleteEvent e
addEvent e
mark
expire 2
trace info
expire 0
Timeout 9
----
* fire 2
* fire 0
Timeout:676 query 0 finished by timer
