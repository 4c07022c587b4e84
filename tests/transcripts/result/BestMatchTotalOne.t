search Number 0711 best
mark
reply 0 Contacts 1 A B/abcde C/abc
reply 0 Contacts 1
----
~0 contact A uid-A vornsyn 1 '0711' 1
~0 contact B uid-B vornsyn 1 '0711' 1
~0 contact B uid-B vornsyn 1 '0711' 1
~0 finished 0
~0 released
