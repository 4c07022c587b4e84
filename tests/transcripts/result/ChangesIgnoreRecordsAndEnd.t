# Three change requests, ids 0 to 2.
contact c
event e
addContact c
deleteEvent e
addEvent e
mark
trace info
reply 0 Contacts 1 A
reply 0 Contacts 0
reply 1 Events 0
reply 2 Folders 0
----
Result:525 strResult 
<reply>
Result:560 records for change request 0 dropped
Result:525 strResult 
<reply>
Result:588 NULL
Result:591 query 0 finished
Result:525 strResult 
<reply>
Result:610 NULL
Result:613 query 1 finished
Result:525 strResult 
<reply>
Result:633 NULL
Result:636 query 2 finished
