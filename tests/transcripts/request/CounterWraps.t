uiQueryId 0xFFFFFFFF
search
search
----
* timer 67 5000 0x00000002/0/0 u32 4294967295
* ipc webconfd@Local from '' 0x00000000/0/145 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId\
':4294967295,'size':100,'userId':''}
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId\
':0,'size':100,'userId':''}
