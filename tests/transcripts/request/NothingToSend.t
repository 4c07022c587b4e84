trace info
search NULL
addContact NULL
deleteContact NULL
addEvent NULL
deleteEvent NULL
----
* error kivomain:startQuery:180 no query client
* error kivomain:addContact:290 no contact
* error kivomain:deleteContact:346 no contact
* error kivomain:addEvent:400 no event
* error kivomain:deleteEvent:454 no event
