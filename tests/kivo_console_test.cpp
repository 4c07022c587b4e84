/*
 * The console "kivo": every command with its exact output and result, bad
 * input, the test searches with their result table, "del" and the sample
 * contacts of "add".
 */
#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

void type(const char* line, int result = 0)
{
    EXPECT_EQ(KIVO_Interpreter(line), result) << line;
}

/* Three contacts: one with three numbers, one with none, one with names
 * longer than their columns. */
Json::Value listed()
{
    Json::Value list = items({"Wefer", "St\xF6" "be", "Wellbrook-Mittelwinkel"});
    list[0]["numbers"][0]["value1"] = 1, list[0]["numbers"][0]["value2"] = 2;
    list[0]["numbers"][2] = list[0]["numbers"][1] = contactItem("", "", "0049 711 2")["numbers"][0];
    list[1]["numbers"].clear();
    return list;
}

#define LISTING                                                                                  \
    "\n= KIVO ===================================\nhelp                 help\n"                 \
    "get                  get something\nset                  set something\n"                   \
    "q                    quit\nti                   trace info\nts                   trace set\n" \
    "name                 search by Name\nid                   search by ID\n"                     \
    "number               search by Number\nindex                search by index\n"              \
    "add                  add contact\ndel                  delete contact\n"                    \
    "dd                   dump database\nsi                   set interface [0|1]\n"              \
    "==========================================\n"

const Row rows[] = {
    {"Help", DO(type(""); type("HeLp me"); KIVO_Interpreter(nullptr)), LISTING LISTING LISTING},
    {"Quit", DO(type("q"); type("Quit"); type("qx")), "* return\n* return\n* return\n"},
    {"Unknown", DO(type(" help"); type("s"); type("t"); type("d"); type("i"); type("xyz")),
     "unknown command\nunknown command\nunknown command\nunknown command\nunknown command\nunknown command\n"},
    {"GetAndSet", DO(type("GET"); type("set it")), "CmdGet\nCmdSet\n"},
    /* Words are cut to the buffer, 11 characters of a trace name (here) and
     * 31 of a search word (below); what follows a cut word is still read. */
    {"TraceSet", DO(type("ti", 1); type("ts   info   1", 1); type("ts exp4567890123 1", 1)),
     "CmdTraceStatus\nKIVO_DebugDump\nidx name       status\n----------------------\n 0  exp        0\n 1  info       0\nCmdTraceSet\n"
     "KIVO_DebugSet pName info  iValue 1\nKIVO_DebugDump\nidx name       status\n----------------------\n 0  exp        0\n 1  info       1\nCmdTraceSet\n"
     "KIVO_DebugSet pName exp45678901  iValue 1\nKIVO_DebugDump\nidx name       status\n----------------------\n 0  exp        0\n 1  info       1\n"},
    {"Interface", DO(type("si 0"); type("dd"); type("name W"); type("si 7"); type("si"); type("dd")),
     "CmdSetInterface\nCmdSetInterface  KIVO_GetIfcEnable() 0\nCmdDumpDB\nkivo\n'--iIfcEnable        0\nCmdSearchByName\nKIVO_TFSearchByName  strName W\n"
     "* log kivoexp:KIVO_ExpQuery:94 kivo-interface disabled\nidx name                  firstname             uid                   backend\n"
     "------------------------------------------------------------------------------------\nCmdSetInterface\nCmdSetInterface  KIVO_GetIfcEnable() 7\n"
     "CmdSetInterface\nCmdSetInterface  KIVO_GetIfcEnable() 0\nCmdDumpDB\nkivo\n'--iIfcEnable        0\n"},
    {"Searches", DO(type("name abcdefghijklmnopqrstuvwxyz0123456789"); type("idABC\r"); type("number 0711\t234");
                    KIVO_DebugSet("exp", 1); type("index 5\n")),
     "CmdSearchByName\nKIVO_TFSearchByName  strName abcdefghijklmnopqrstuvwxyz01234\n* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from '' 0x00000000/0/166 json {'offset':0,'params':{'data':'abcdefghijklmnopqrstuvwxyz01234','kind':'contact','type':2},'queryId':0,'size':100,'userId':''}\n"
     "CmdSearchByID\nKIVO_TFSearchByID  id ABC\n* timer 67 5000 0x00000002/0/0 u32 1\n"
     "* ipc webconfd@Local from '' 0x00000000/0/138 json {'offset':0,'params':{'data':'ABC','kind':'contact','type':0},'queryId':1,'size':100,'userId':''}\n"
     "CmdSearchByNumber\nKIVO_TFSearchByNumber  strNumber 0711\n* timer 67 5000 0x00000002/0/0 u32 2\n"
     "* ipc webconfd@Local from '' 0x00000000/0/139 json {'offset':0,'params':{'data':'0711','kind':'contact','type':1},'queryId':2,'size':100,'userId':''}\n"
     "KIVO_DebugSet pName exp  iValue 1\nCmdSearchByIndex\nKIVO_TFSearchByIndex  strName 5\nKIVO_ExpQuery  searchMode 1\n"
     "* timer 67 5000 0x00000002/0/0 u32 3\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'5','kind':'contact','type':4},'queryId':3,'size':100,'userId':''}\n"},
    {"ResultTableAndDelete", DO(type("name W"); t.reply(0, Contacts, 3, listed()); t.reply(0, Contacts, 3);
                                EXPECT_EQ(KIVO_TFDelete(0), 0); type("del 3"); EXPECT_EQ(KIVO_TFDelete(-1), 0); type("del")),
     "CmdSearchByName\nKIVO_TFSearchByName  strName W\n* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'W','kind':'contact','type':2},'queryId':0,'size':100,'userId':''}\n"
     "addContact:923  strSearchPattern W  iCountFound 3\naddContact:923  strSearchPattern W  iCountFound 3\n"
     "addContact:923  strSearchPattern W  iCountFound 3\nidx name                  firstname             uid                   backend\n"
     "------------------------------------------------------------------------------------\n"
     " 0) Wefer                 F                     uid-Wefer             vornsyn   \n    |--  0 * 0711                               1 2\n"
     "    |--  1   0049 711 2                         0 0\n    '--  2   0049 711 2                         0 0\n"
     " 1) St\xF6""be                 F                     uid-St\xF6""be             vornsyn   \n"
     " 2) Wellbrook-Mittelwink  F                     uid-Wellbrook-Mittel  vornsyn   \n    '--  0 * 0711                               0 0\n"
     "KIVO_TFDelete:956  iIndex 0\n* timer 67 5000 0x00000002/0/0 u32 1\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/142 json {'offset':0,'params':{'data':'uid-Wefer','kind':'contact','type':6},'queryId':1,'size':0,'userId':''}\n"
     "CmdDelContact\nKIVO_TFDelete:956  iIndex 3\nKIVO_TFDelete:958  invalid iIndex\nKIVO_TFDelete:956  iIndex -1\nKIVO_TFDelete:958  invalid iIndex\n"
     "CmdDelContact\nKIVO_TFDelete:956  iIndex 0\n* timer 67 5000 0x00000002/0/0 u32 2\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/142 json {'offset':0,'params':{'data':'uid-Wefer','kind':'contact','type':6},'queryId':2,'size':0,'userId':''}\n"},
    {"ElevenRowsAtMost", DO(type("id 1"); t.reply(0, Contacts, 12, items({"A", "B", "C", "D", "E", "F", "G", "H", "I",
                                                                         "J", "K", "L"}));
                            PbBackend::QueryState q; t.backend().lookup(0, &q);   /* the other addContact */
                            q.client->addContact(Contact(), CacheRemote);
                            type("del 11"); type("del 10")),
     "CmdSearchByID\nKIVO_TFSearchByID  id 1\n* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'1','kind':'contact','type':0},'queryId':0,'size':100,'userId':''}\n"
     "addContact:923  strSearchPattern 1  iCountFound 12\naddContact:923  strSearchPattern 1  iCountFound 12\n"
     "addContact:923  strSearchPattern 1  iCountFound 12\naddContact:923  strSearchPattern 1  iCountFound 12\n"
     "addContact:923  strSearchPattern 1  iCountFound 12\naddContact:923  strSearchPattern 1  iCountFound 12\n"
     "addContact:923  strSearchPattern 1  iCountFound 12\naddContact:923  strSearchPattern 1  iCountFound 12\n"
     "addContact:923  strSearchPattern 1  iCountFound 12\naddContact:923  strSearchPattern 1  iCountFound 12\n"
     "addContact:923  strSearchPattern 1  iCountFound 12\naddContact:923  strSearchPattern 1  iCountFound 12\naddContact:903\nCmdDelContact\n"
     "KIVO_TFDelete:956  iIndex 11\nKIVO_TFDelete:958  invalid iIndex\nCmdDelContact\nKIVO_TFDelete:956  iIndex 10\n* timer 67 5000 0x00000002/0/0 u32 1\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/138 json {'offset':0,'params':{'data':'uid-K','kind':'contact','type':6},'queryId':1,'size':0,'userId':''}\n"},
    {"NewSearchClearsTheList", DO(type("id 1"); t.reply(0, Contacts, 1, items({"A"})); type("id 2"); type("del 0")),
     "CmdSearchByID\nKIVO_TFSearchByID  id 1\n* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'1','kind':'contact','type':0},'queryId':0,'size':100,'userId':''}\n"
     "addContact:923  strSearchPattern 1  iCountFound 1\nCmdSearchByID\nKIVO_TFSearchByID  id 2\n* timer 67 5000 0x00000002/0/0 u32 1\n"
     "* ipc webconfd@Local from '' 0x00000000/0/136 json {'offset':0,'params':{'data':'2','kind':'contact','type':0},'queryId':1,'size':100,'userId':''}\n"
     "CmdDelContact\nKIVO_TFDelete:956  iIndex 0\nKIVO_TFDelete:958  invalid iIndex\n"},
    {"AddSamples", DO(type("add 1"); type("Add 2"); type("add 3"); type("add 4")),
     "CmdAddContact\n* timer 67 5000 0x00000002/0/0 u32 0\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/664 json {'offset':0,'params':{'data':{'backend':'source','company':'H\\u00f6strand','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'','firstName':'Tilmo','lastName':'Wefer','numbers':[{'number':'011122233344','text1':'','text3':'','text4':'','value1':1,'value2':2,'value3':-1}],'text3':'93337 84566','text7':'','uid':''},'kind':'contact','type':5},'queryId':0,'size':0,'userId':''}\n"
     "CmdAddContact\n* timer 67 5000 0x00000002/0/0 u32 1\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/508 json {'offset':0,'params':{'data':{'backend':'source','company':'Mittelwinkel GmbH','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'','firstName':'Jorn','lastName':'Wellbrook','numbers':[],'text3':'935527665 5676','text7':'','uid':''},'kind':'contact','type':5},'queryId':1,'size':0,'userId':''}\n"
     "CmdAddContact\n* timer 67 5000 0x00000002/0/0 u32 2\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/500 json {'offset':0,'params':{'data':{'backend':'source','company':'L\\u00fcnbeck','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'','firstName':'Elka','lastName':'St\\u00f6be','numbers':[],'text3':'78623 3552','text7':'','uid':''},'kind':'contact','type':5},'queryId':2,'size':0,'userId':''}\n"
     "CmdAddContact\n* timer 67 5000 0x00000002/0/0 u32 3\n"
     "* ipc webconfd@Local from NULL 0x00830001/0/504 json {'offset':0,'params':{'data':{'backend':'source','company':'Olva','entries':[],'extraText1':'','extraText2':'','extraText3':'','extraText4':'','extraText5':'','extraText6':'','extraText7':'','firstName':'Falmer','lastName':'\\u00d6hlenbach','numbers':[],'text3':'645362224 325637','text7':'','uid':''},'kind':'contact','type':5},'queryId':3,'size':0,'userId':''}\n"},
};

INSTANTIATE_TEST_SUITE_P(Console, TranscriptTest, ::testing::ValuesIn(rows), rowName);

}  // namespace
