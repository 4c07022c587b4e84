type name abcdefghijklmnopqrstuvwxyz0123456789
type "idABC\r"
type "number 0711\t234"
KIVO_DebugSet exp 1
type "index 5\n"
----
CmdSearchByName
KIVO_TFSearchByName  strName abcdefghijklmnopqrstuvwxyz01234
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from '' 0x00000000/0/166 json {'offset':0,'params':{'data':'abcdefghijklmnopqrstuvwxyz01234','kind\
':'contact','type':2},'queryId':0,'size':100,'userId':''}
CmdSearchByID
KIVO_TFSearchByID  id ABC
* timer 67 5000 0x00000002/0/0 u32 1
* ipc webconfd@Local from '' 0x00000000/0/138 json {'offset':0,'params':{'data':'ABC','kind':'contact','type':0},'query\
Id':1,'size':100,'userId':''}
CmdSearchByNumber
KIVO_TFSearchByNumber  strNumber 0711
* timer 67 5000 0x00000002/0/0 u32 2
* ipc webconfd@Local from '' 0x00000000/0/139 json {'offset':0,'params':{'data':'0711','kind':'contact','type':1},'quer\
yId':2,'size':100,'userId':''}
KIVO_DebugSet pName exp  iValue 1
CmdSearchByIndex
KIVO_TFSearchByIndex  strName 5
KIVO_ExpQuery  searchMode 1
* timer 67 5000 0x00000002/0/0 u32 3
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'5','kind':'contact','type':4},'queryId\
':3,'size':100,'userId':''}
