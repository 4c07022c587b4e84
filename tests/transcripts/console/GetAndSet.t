type GET
type set it
----
CmdGet
CmdSet
