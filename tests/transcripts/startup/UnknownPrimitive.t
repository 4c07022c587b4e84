message 0x12345678 u32 5 str "a\\b\x01"
----
KIVO_MsgSwitch *** unknown Primitive 0x12345678
CManMessage primitive 0x12345678 length 18
  u32 0x00000005 5
  string length 4 "a\x5cb\x01"
