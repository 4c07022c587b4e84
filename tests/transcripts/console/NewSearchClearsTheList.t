type id 1
reply 0 Contacts 1 A
type id 2
type del 0
----
CmdSearchByID
KIVO_TFSearchByID  id 1
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'1','kind':'contact','type':0},'queryId\
':0,'size':100,'userId':''}
addContact:923  strSearchPattern 1  iCountFound 1
CmdSearchByID
KIVO_TFSearchByID  id 2
* timer 67 5000 0x00000002/0/0 u32 1
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'2','kind':'contact','type':0},'queryId\
':1,'size':100,'userId':''}
CmdDelContact
KIVO_TFDelete:956  iIndex 0
KIVO_TFDelete:958  invalid iIndex
