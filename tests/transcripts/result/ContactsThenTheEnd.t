search NameAlpha We
search
mark
reply 0 Contacts 3 A B
reply 0 Contacts 3 C
trace info
reply 0 Contacts 3
reply 1 Contacts 0
expire 0
----
~0 contact A uid-A vornsyn 1 'We' 3
~0 contact B uid-B vornsyn 1 'We' 3
~0 contact C uid-C vornsyn 1 'We' 3
Result:525 strResult 
<reply>
~0 finished 0
Result:591 query 0 finished
~0 released
Result:525 strResult 
<reply>
~1 finished 1
Result:591 query 1 finished
~1 released
* fire 0
