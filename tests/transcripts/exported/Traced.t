# Null records go to the manager, which drops them; no client, no search.
KIVO_DebugSet exp 1
KIVO_ExpQuery Number => 0
KIVO_ExpAddContact NULL => 0
KIVO_ExpDelContact NULL => 0
KIVO_ExpAddEvent NULL => 0
KIVO_ExpDelEvent NULL => 0
KIVO_ExpQuery NULL => -1
----
KIVO_DebugSet pName exp  iValue 1
KIVO_ExpQuery  searchMode 1
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':1},'queryId\
':0,'size':100,'userId':''}
KIVO_ExpAddContact  pContact (nil)
KIVO_AddContact  pContact (nil)
KIVO_ExpDelContact  pContact (nil)
KIVO_DelContact  pContact (nil)
KIVO_ExpAddEvent  pEvent (nil)
KIVO_AddEvent  pEvent (nil)
KIVO_ExpDelEvent  pEvent (nil)
KIVO_DelEvent  pEvent (nil)
KIVO_ExpQuery  searchMode 1
* error kivoexp:KIVO_ExpQuery:91 no query client
