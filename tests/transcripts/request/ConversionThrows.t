# A failed conversion spends its id: the timer it armed finds no entry
# and leaves the next query alone.
contact c throws
addContact c => throws
search
trace info
expire 0
----
* timer 67 5000 0x00000002/0/0 u32 0
* timer 67 5000 0x00000002/0/0 u32 1
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId\
':1,'size':100,'userId':''}
* fire 0
