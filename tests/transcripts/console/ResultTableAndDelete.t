type name W
# Three contacts: one with three numbers, one with none, one with names
# longer than their columns.
reply 0 Contacts 3 [{"uid": "uid-Wefer", "firstName": "F", "lastName": "Wefer", "numbers": [{"number": "0711", "text3":\
 "", "value1": 1, "value2": 2}, {"number": "0049 711 2", "text3": ""}, {"number": "0049 711 2", "text3": ""}]}, {"uid":\
 "uid-St\u00f6be", "firstName": "F", "lastName": "St\u00f6be", "numbers": []}, {"uid": "uid-Wellbrook-Mittelwinkel", "f\
irstName": "F", "lastName": "Wellbrook-Mittelwinkel", "numbers": [{"number": "0711", "text3": ""}]}]
reply 0 Contacts 3
KIVO_TFDelete 0 => 0
type del 3
KIVO_TFDelete -1 => 0
type del
----
CmdSearchByName
KIVO_TFSearchByName  strName W
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId\
':0,'size':100,'userId':''}
addContact:923  strSearchPattern W  iCountFound 3
addContact:923  strSearchPattern W  iCountFound 3
addContact:923  strSearchPattern W  iCountFound 3
idx name                  firstname             uid                   backend
------------------------------------------------------------------------------------
 0) Wefer                 F                     uid-Wefer             vornsyn   
    |--  0 * 0711                               1 2
    |--  1   0049 711 2                         0 0
    '--  2   0049 711 2                         0 0
 1) Stöbe                 F                     uid-Stöbe             vornsyn   
 2) Wellbrook-Mittelwink  F                     uid-Wellbrook-Mittel  vornsyn   
    '--  0 * 0711                               0 0
KIVO_TFDelete:956  iIndex 0
* timer 67 5000 0x00000002/0/0 u32 1
* ipc webconfd@Local from NULL 0x00830001/0/142 json {'offset':0,'params':{'data':'uid-Wefer','kind':'contact','type':6\
},'queryId':1,'size':0,'userId':''}
CmdDelContact
KIVO_TFDelete:956  iIndex 3
KIVO_TFDelete:958  invalid iIndex
KIVO_TFDelete:956  iIndex -1
KIVO_TFDelete:958  invalid iIndex
CmdDelContact
KIVO_TFDelete:956  iIndex 0
* timer 67 5000 0x00000002/0/0 u32 2
* ipc webconfd@Local from NULL 0x00830001/0/142 json {'offset':0,'params':{'data':'uid-Wefer','kind':'contact','type':6\
},'queryId':2,'size':0,'userId':''}
