contact c
addContact c
search
mark
trace info
reply 0 Acknowledge 0
reply 1 Acknowledge 0
----
Result:525 strResult 
<reply>
Result:642 acknowledge
Result:525 strResult 
<reply>
Result:642 acknowledge
~0 finished 1
~0 released
