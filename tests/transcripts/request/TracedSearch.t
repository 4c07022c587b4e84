trace info
search NameVanity 9333 offset=3 size=7 user=u1 primitive=0x00830005 source=ui@Local
----
startQuery:182  QueryId 0
* timer 67 5000 0x00000002/0/0 u32 0
startQuery:216  mode: NameVanity offset 3  size 7
startQuery:252 userid u1
startQuery:267 strRequest <request>
* create 0x00830005/0/139
Source address: ui@Local Destination address: webconfd@Local
* ipc webconfd@Local from 'ui@Local' 0x00830005 json {'offset':3,'params':{'data':'9333','kind':'contact','type':3},'qu\
eryId':0,'size':7,'userId':'u1'}
