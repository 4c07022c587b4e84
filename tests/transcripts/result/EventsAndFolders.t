# Records go by their type, whatever the search; the count is shared.
search EventRange null
search FolderList null best
search FolderList null
mark
reply 0 Events 0 E
reply 1 Folders 0 F
reply 1 Events 0 E
trace info
reply 0 Events 0
reply 1 Contacts 3
reply 2 Folders 0 F
reply 2 Folders 1
----
~0 event  uid-E vornsyn 1
~1 folder  uid-F vornsyn 1
~1 event  uid-E vornsyn 1
Result:525 strResult 
<reply>
Result:606
~0 finished 0
Result:613 query 0 finished
~0 released
Result:525 strResult 
<reply>
~1 contact    1 '' 3
~1 finished 0
Result:591 query 1 finished
~1 released
Result:525 strResult 
<reply>
~2 folder  uid-F vornsyn 1
Result:525 strResult 
<reply>
Result:629
~2 finished 0
Result:636 query 2 finished
~2 released
