type " help"
type s
type t
type d
type i
type xyz
----
unknown command
unknown command
unknown command
unknown command
unknown command
unknown command
