KIVO_DebugSet exp 1
KIVO_SetIfcEnable 0 => 0
KIVO_ExpQuery Number => 1
KIVO_ExpAddContact NULL => 1
KIVO_ExpDelContact NULL => 1
KIVO_ExpAddEvent NULL => 1
KIVO_ExpDelEvent NULL => 1
----
KIVO_DebugSet pName exp  iValue 1
KIVO_ExpQuery  searchMode 1
* log kivoexp:KIVO_ExpQuery:94 kivo-interface disabled
~0 requestFinished
~0 released
KIVO_ExpAddContact  pContact (nil)
* log kivoexp:KIVO_ExpAddContact:111 kivo-interface disabled
KIVO_ExpDelContact  pContact (nil)
* log kivoexp:KIVO_ExpDelContact:127 kivo-interface disabled
KIVO_ExpAddEvent  pEvent (nil)
* log kivoexp:KIVO_ExpAddEvent:143 kivo-interface disabled
KIVO_ExpDelEvent  pEvent (nil)
* log kivoexp:KIVO_ExpDelEvent:159 kivo-interface disabled
