# Text that is not a reply changes nothing (one nested too deep is logged);
# the reader reads on.
search
mark
reply ""
reply "not json"
reply "{\"queryId\": 0, \"items\": ["
reply "["*5000"]"*5000
reply "\xFF\xFE{"
reply 0 Contacts 1 A
----
* error kivomain:Result:527 reply nested deeper than 64 levels dropped
~0 contact A uid-A vornsyn 1 'W' 1
