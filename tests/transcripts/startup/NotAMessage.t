# The platform refuses the message; then raw bytes it cannot read: shorter
# than a primitive, a string field that runs past the end, a tag it does not know.
fail Assign 5
message KIVO_PRIM_RESULT str "{}"
raw 0x00 0x83
raw 0 0 0 2 MAN_TAG_STRING 0 0 9 0x78
raw 0 0 0 2 0x7f
----
* log kivoprcss:KIVO_MsgSwitch:100 receive failed iRetCode 5
* log kivoprcss:KIVO_MsgSwitch:100 receive failed iRetCode 3
* log kivoprcss:KIVO_MsgSwitch:100 receive failed iRetCode 3
* log kivoprcss:KIVO_MsgSwitch:100 receive failed iRetCode 3
