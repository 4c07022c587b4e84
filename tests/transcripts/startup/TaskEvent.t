deliver task 0x12 message 1 => released 0
----
KIVO_EventSwitch wPrimitiv 00000012
