type id 1
reply 0 Contacts 12 A B C D E F G H I J K L
client 0 addContact
type del 11
type del 10
----
CmdSearchByID
KIVO_TFSearchByID  id 1
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'1','kind':'contact','type':0},'queryId\
':0,'size':100,'userId':''}
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:923  strSearchPattern 1  iCountFound 12
addContact:903
CmdDelContact
KIVO_TFDelete:956  iIndex 11
KIVO_TFDelete:958  invalid iIndex
CmdDelContact
KIVO_TFDelete:956  iIndex 10
* timer 67 5000 0x00000002/0/0 u32 1
* ipc webconfd@Local from NULL 0x00830001/0/138 json {'offset':0,'params':{'data':'uid-K','kind':'contact','type':6},'q\
ueryId':1,'size':0,'userId':''}
