type ""
type HeLp me
type NULL
----

= KIVO ===================================
help                 help
get                  get something
set                  set something
q                    quit
ti                   trace info
ts                   trace set
name                 search by Name
id                   search by ID
number               search by Number
index                search by index
add                  add contact
del                  delete contact
dd                   dump database
si                   set interface [0|1]
==========================================

= KIVO ===================================
help                 help
get                  get something
set                  set something
q                    quit
ti                   trace info
ts                   trace set
name                 search by Name
id                   search by ID
number               search by Number
index                search by index
add                  add contact
del                  delete contact
dd                   dump database
si                   set interface [0|1]
==========================================

= KIVO ===================================
help                 help
get                  get something
set                  set something
q                    quit
ti                   trace info
ts                   trace set
name                 search by Name
id                   search by ID
number               search by Number
index                search by index
add                  add contact
del                  delete contact
dd                   dump database
si                   set interface [0|1]
==========================================
