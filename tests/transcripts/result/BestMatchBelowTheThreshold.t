search Number 0711 best
search Number 0711 best
mark
reply 0 Contacts 5 A/ab
reply 0 Contacts 5
reply 1 Contacts 5
----
~0 contact A uid-A vornsyn 1 '0711' 5
~0 finished 0
~0 released
~1 finished 1
~1 released
