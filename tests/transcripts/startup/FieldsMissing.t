# A missing field reads as 0 or "": the timer ends query 0, the reply
# is no JSON.
search
mark
trace info
message KIVO_PRIM_RESULT
message KIVO_PRIM_TIMER
----
Result:525 strResult 
~0 finished 1
Timeout:676 query 0 finished by timer
~0 released
