search
search
mark
reply 1 Contacts 2 A
trace info
lookup 1 => count 1
openIds => 0 1
expire 0
expire 1
reply 1 Contacts 1
lookup 1 => none
----
~1 contact A uid-A vornsyn 1 'W' 2
* fire 0
~0 finished 1
Timeout:676 query 0 finished by timer
~0 released
* fire 1
~1 finished 0
Timeout:676 query 1 finished by timer
~1 released
Result:525 strResult 
<reply>
Result:543 abort: invalid id 1
