# A repeated id (after the counter wrapped) replaces the entry.
search
uiQueryId 0
contact c
addContact c
trace info
expire 0
----
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId\
':0,'size':100,'userId':''}
* timer 67 5000 0x00000002/0/0 u32 0
~0 released
* ipc webconfd@Local from NULL 0x00830001/0/458 json {'offset':0,'params':{'data':{'backend':'','company':'','entries':\
[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'','fir\
stName':'','lastName':'','numbers':[],'text3':'','text7':'','uid':''},'kind':'contact','type':5},'queryId':0,'size':0,'\
userId':''}
* fire 0
Timeout:676 query 0 finished by timer
