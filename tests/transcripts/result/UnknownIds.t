trace info
reply 0x1234 Contacts 1 A
reply 0xAB ConfigChanged 0
----
Result:525 strResult 
<reply>
Result:543 abort: invalid id 1234
Result:525 strResult 
<reply>
* local 64 0x00840002/0/32
Result:543 abort: invalid id ab
