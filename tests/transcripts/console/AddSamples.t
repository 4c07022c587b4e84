type add 1
type Add 2
type add 3
type add 4
----
CmdAddContact
* timer 67 5000 0x00000002/0/0 u32 0
* ipc webconfd@Local from NULL 0x00830001/0/664 json {'offset':0,'params':{'data':{'backend':'source','company':'H\u00f\
6strand','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','\
extraText7':'','firstName':'Tilmo','lastName':'Wefer','numbers':[{'number':'011122233344','text1':'','text3':'','text4'\
:'','value1':1,'value2':2,'value3':-1}],'text3':'93337 84566','text7':'','uid':''},'kind':'contact','type':5},'queryId'\
:0,'size':0,'userId':''}
CmdAddContact
* timer 67 5000 0x00000002/0/0 u32 1
* ipc webconfd@Local from NULL 0x00830001/0/508 json {'offset':0,'params':{'data':{'backend':'source','company':'Mittel\
winkel GmbH','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':\
'','extraText7':'','firstName':'Jorn','lastName':'Wellbrook','numbers':[],'text3':'935527665 5676','text7':'','uid':''}\
,'kind':'contact','type':5},'queryId':1,'size':0,'userId':''}
CmdAddContact
* timer 67 5000 0x00000002/0/0 u32 2
* ipc webconfd@Local from NULL 0x00830001/0/500 json {'offset':0,'params':{'data':{'backend':'source','company':'L\u00f\
cnbeck','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','e\
xtraText7':'','firstName':'Elka','lastName':'St\u00f6be','numbers':[],'text3':'78623 3552','text7':'','uid':''},'kind':\
'contact','type':5},'queryId':2,'size':0,'userId':''}
CmdAddContact
* timer 67 5000 0x00000002/0/0 u32 3
* ipc webconfd@Local from NULL 0x00830001/0/504 json {'offset':0,'params':{'data':{'backend':'source','company':'Olva',\
'entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText\
7':'','firstName':'Falmer','lastName':'\u00d6hlenbach','numbers':[],'text3':'645362224 325637','text7':'','uid':''},'ki\
nd':'contact','type':5},'queryId':3,'size':0,'userId':''}
