KIVO_SetIfcEnable 5
KIVO_GetIfcEnable => 5
KIVO_DumpDb
event e
KIVO_ExpDelEvent e => 0
----
kivo
'--iIfcEnable        5
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from NULL 0x00830001/0/131 json {'offset':0,'params':{'data':'','kind':'event','type':3},'queryId'\
:0,'size':0,'userId':''}
