# Item "Name/text3": text3 of the first number is the best-match measure.
search Number 0711 best
mark
reply 0 Contacts 4 A/abcd B/ab C/abc D/abcd
reply 0 Contacts 4
----
~0 contact A uid-A vornsyn 1 '0711' 4
~0 finished 0
~0 released
