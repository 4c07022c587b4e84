type q
type Quit
type qx
----
* return
* return
* return
