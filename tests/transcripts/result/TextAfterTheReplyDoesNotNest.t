# What follows a reply's value is not read (the reader's default); its
# brackets count from the depth the reply closed at, 0, so a tail 64 deep
# drops nothing and the reply ends the search.
search
mark
reply "{\"queryId\": 0, \"type\": 0, \"total\": 0, \"items\": []}""["*64"]"*64
----
~0 finished 1
~0 released
