trace info
search EventRange
----
startQuery:182  QueryId 0
* timer 67 5000 0x00000002/0/0 u32 0
startQuery:234  mode: EventRange  offset 0  size 100
startQuery:252 userid 
startQuery:267 strRequest <request>
* create 0x00000000/0/134
Source address:  Destination address: webconfd@Local
* ipc webconfd@Local from '' 0x00000000 json {'offset':0,'params':{'data':'W','kind':'event','type':0},'queryId':0,'siz\
e':100,'userId':''}
