search
mark
trace info
reply 0 4 0
reply 0 ConfigChanged 0
reply 0 99 0
reply 0 -1 0
expire 0
----
Result:525 strResult 
<reply>
Result:651 abort: invalid type
Result:525 strResult 
<reply>
Result:651 abort: invalid type
Result:525 strResult 
<reply>
Result:651 abort: invalid type
Result:525 strResult 
<reply>
Result:651 abort: invalid type
* fire 0
~0 finished 1
Timeout:676 query 0 finished by timer
~0 released
