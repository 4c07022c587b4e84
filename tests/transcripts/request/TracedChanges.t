trace info
contact c backend=source uid=u-17 first=Tilmo last=Wefer company="H\xF6strand" number=011122233344/1/2/-1
event e backend=source uid=ev-3 kind=missed number=0711 name=Wefer time=1700000000 duration=0
addContact c
deleteContact c
addEvent e
deleteEvent e
----
addContact:293
addContact:294 contact->getLastName  Wefer
addContact:295 contact->getFirstName Tilmo
* timer 67 5000 0x00000002/0/0 u32 0
addContact:324 strRequest <request>
* ipc webconfd@Local from NULL 0x00830001/0/668 json {'offset':0,'params':{'data':{'backend':'source','company':'H\u00f\
6strand','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','\
extraText7':'','firstName':'Tilmo','lastName':'Wefer','numbers':[{'number':'011122233344','text1':'','text3':'','text4'\
:'','value1':1,'value2':2,'value3':-1}],'text3':'93337 84566','text7':'','uid':'u-17'},'kind':'contact','type':5},'quer\
yId':0,'size':0,'userId':''}
deleteContact:349
deleteContact:350 contact->getUid u-17
* timer 67 5000 0x00000002/0/0 u32 1
deleteContact:378 strRequest <request>
* ipc webconfd@Local from NULL 0x00830001/0/137 json {'offset':0,'params':{'data':'u-17','kind':'contact','type':6},'qu\
eryId':1,'size':0,'userId':''}
addEvent:403
* timer 67 5000 0x00000002/0/0 u32 2
addEvent:432 strRequest <request>
* ipc webconfd@Local from NULL 0x00830001/0/286 json {'offset':0,'params':{'data':{'backend':'source','duration':0,'kin\
d':0,'name':'Wefer','number':'0711','timestamp':1700000000,'uid':'ev-3'},'kind':'event','type':2},'queryId':2,'size':0,\
'userId':''}
deleteEvent:457
deleteEvent:458 event->getUid ev-3
* timer 67 5000 0x00000002/0/0 u32 3
deleteEvent:486 strRequest <request>
* ipc webconfd@Local from NULL 0x00830001/0/135 json {'offset':0,'params':{'data':'ev-3','kind':'event','type':3},'quer\
yId':3,'size':0,'userId':''}
