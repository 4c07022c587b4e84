contact c backend=source uid=u-1 last=Wefer
event e backend=source uid=ev-1 kind=missed number=0711
KIVO_ExpQuery Number => 0
KIVO_ExpAddContact c => 0
KIVO_ExpDelContact c => 0
KIVO_ExpAddEvent e => 0
KIVO_ExpDelEvent e => 0
----
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':1},'queryId\
':0,'size':100,'userId':''}
* timer 67 5000 0x00000002/0/0 u32 1
* ipc webconfd@Local from NULL 0x00830001/0/477 json {'offset':0,'params':{'data':{'backend':'source','company':'','ent\
ries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'\
','firstName':'','lastName':'Wefer','numbers':[],'text3':'93337','text7':'','uid':'u-1'},'kind':'contact','type':5},'qu\
eryId':1,'size':0,'userId':''}
* timer 67 5000 0x00000002/0/0 u32 2
* ipc webconfd@Local from NULL 0x00830001/0/136 json {'offset':0,'params':{'data':'u-1','kind':'contact','type':6},'que\
ryId':2,'size':0,'userId':''}
* timer 67 5000 0x00000002/0/0 u32 3
* ipc webconfd@Local from NULL 0x00830001/0/272 json {'offset':0,'params':{'data':{'backend':'source','duration':0,'kin\
d':0,'name':'','number':'0711','timestamp':0,'uid':'ev-1'},'kind':'event','type':2},'queryId':3,'size':0,'userId':''}
* timer 67 5000 0x00000002/0/0 u32 4
* ipc webconfd@Local from NULL 0x00830001/0/135 json {'offset':0,'params':{'data':'ev-1','kind':'event','type':3},'quer\
yId':4,'size':0,'userId':''}
