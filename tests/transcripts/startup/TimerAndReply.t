uiQueryId 7
search
mark
trace info
message KIVO_PRIM_TIMER u32 7
message KIVO_PRIM_RESULT str "{\"queryId\": 99, \"type\": 3}"
----
~0 finished 1
Timeout:676 query 7 finished by timer
~0 released
Result:525 strResult 
{"queryId": 99, "type": 3}%
Result:543 abort: invalid id 63
