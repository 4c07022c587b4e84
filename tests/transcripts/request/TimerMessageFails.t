fail Create 2
search
KIVO_QueryTimer 9 => 0
----
* create 0x00000002/0/0
* error kivomain:KIVO_QueryTimer:816 cMsg.Create failed

* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId\
':0,'size':100,'userId':''}
* timer 67 5000 0x00000002/0/0 u32 9
