// Scenarios of strangers: every error names its place, and no document takes much time or memory.
#include "hostsim.h"
#include "values.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace
{

// What is wrong with a scenario; empty: nothing.
std::string error_of(std::string text)
{
    std::replace(text.begin(), text.end(), '\'', '"');
    try {
        hostsim::host::from_text(text, "/dev/null");
    } catch (const hostsim::scenario_error &e) {
        return e.what();
    }
    return {};
}

TEST(ScenarioTest, ErrorsNameTheirPlace)
{
    enum level { host, port, session, lun, fault };
    const std::pair<std::string, std::string> levels[] = {
        {"{@}", ""},
        {"{'ports':[{'driver':'pelt'},{@}]}", "ports[1]"},
        {"{'ports':[{'driver':'pelt','sessions':[{@}]}]}", "ports[0].sessions[0]"},
        {"{'ports':[{'driver':'pelt','sessions':[{'luns':[{@}]}]}]}", "ports[0].sessions[0].luns[0]"},
        {"{'faults':[{'driver':'pelt',@}]}", "faults[0]"},
    };
    const std::tuple<level, const char *, std::string> cases[] = {
        {host, "'x':1", "x: unknown field"},
        {host, "'ports':{}", "ports: not an array"},
        {host, "'devices':[]", "devices: not an object"},
        {host, "'devices':{'a':{},'b':[]}", "devices.b: not an object"},
        {host, "'devices':{'a':{'lun':1}}", "devices.a.lun: unknown field"},
        {host, "'devices':{'a':{},'a':{}}", "devices.a: given twice"},
        {port, "'driver':'pelt','host_no':32", ".host_no: host number 32 is another port's of the driver"},
        {port, "", ": driver is missing"},
        {port, "'driver':'foo'", ".driver: not one of rovani, tepli, pelt, dxo"},
        {port, "'modelname':'x'", ".modelname: unknown field"},
        {port, "'mac':'aa:bb:cc:dd:ee'", ".mac: not a MAC address"},
        {port, "'mtu':4294967296", ".mtu: not a number from 0 to 4294967295"},
        {port, "'vlan_priority':'0x100'", ".vlan_priority: not a number from 0 to 255"},
        {port, "'driver_name':'12345678901234567'", ".driver_name: longer than 16 bytes"},
        {port, "'ipv4addr':'1.2.3'", ".ipv4addr: not an IPv4 address"},
        {port, "'ipv6addr':'fd00::7\\u0000x'", ".ipv6addr: not an IPv6 address"},
        {port, "'portal':'[fd00::7]:65536'", ".portal: not host:port with a port from 1 to 65535"},
        {port, "'portal':'fd00::7:3260'", ".portal: not host:port with a port from 1 to 65535"},
        {port, "'portal':'[fd00::7]x'", ".portal: not host:port with a port from 1 to 65535"},
        {port, "'portal':'host:'", ".portal: not host:port with a port from 1 to 65535"},
        {port, "'portal':'a\\u0000b'", ".portal: not host:port with a port from 1 to 65535"},
        {port, "'mtu':9,'sessions':[{'repeat':2}],'mtu':9", ".mtu: given twice"},
        {port, "'sessions':[[[],0]]", ".sessions[0]: not an object"},
        {port, "'sessions':[0]", ".sessions[0]: not an object"},
        {port, "'mtu':[1]", ".mtu: not a number from 0 to 4294967295"},
        {port, "'mtu':{'x':1}", ".mtu: not a number from 0 to 4294967295"},
        {port, "'model_name':[1,256]", ".model_name[1]: not a number from 0 to 255"},
        {port, "'model_name':[1,[2]]", ".model_name[1]: not a number from 0 to 255"},
        {port, "'host_no':4294967295,'driver':'dxo','repeat':2", ".host_no: its copies go beyond 4294967295"},
        {session, "'target':{'ip':1}", ".target.ip: unknown field"},
        {session, "'target':[]", ".target: not an object"},
        {session, "'luns':[{'lun':16383},{}]", ".luns[1]: its LUNs go beyond 16383"},
        {session, "'luns':[{},{'lun':0}]", ".luns: a LUN is there twice"},
        {lun, "'size':1000", ".size: not a multiple of the block size 512"},
        {lun, "'size':'16 EiB'", ".size: more bytes than 64 bits count"},
        {lun, "'file':'disk.img'", ".file: Not a directory"},
        {lun, "'file':'a\\u0000b'", ".file: has a NUL byte"},
        {lun, "'file':['/',0]", ".file[0]: not a number from 0 to 255"},
        {lun, "'vendor':'a','vendor':'b'", ".vendor: given twice"},
        {lun, "'device':'d'", ".device: there is no such device"},
        {lun, "'device':'d','repeat':1", ".device: only lun stands beside it"},
        {lun, "'designators':[],'device':'d'", ".device: only lun stands beside it"},
        {lun, "'physical_block_size':1536",
         ".physical_block_size: not the block size 512 times a power of two up to 32768"},
        {lun, "'size':0,'physical_block_size':512", ".physical_block_size: only for a disk with a medium"},
        {lun, "'device_type':5,'provisioning':'thin','size':512", ".provisioning: only for a disk with a medium"},
        {lun, "'provisioning':'thick'", ".provisioning: not one of full, resource, thin"},
        {lun, "'designators':{}", ".designators: not an array"},
        {lun, "'designators':[{}]", ".designators[0]: not exactly one of t10, eui64, naa and scsi_name"},
        {lun, "'designators':[{'naa':'0x012345678'}]",
         ".designators[0].naa: not \"0x\" and 16 or 32 hexadecimal digits"},
        {lun, "'designators':[{'eui64':1}]", ".designators[0].eui64: not \"0x\" and 16 or 24 or 32 hexadecimal digits"},
        {lun, "'designators':[{'t10':'1234567'}]", ".designators[0].t10: shorter than 8 bytes"},
        {lun, "'designators':[{'scsi_name':''}]", ".designators[0].scsi_name: empty, or has a NUL byte"},
        {fault, "'request':'open'", ".request: not made to this driver"},
        {fault, "'request':'hostno','errno':'EFOO'", ".errno: not an error such as \"EIO\""},
        {fault, "'request':'hostno','instance':1,'status':1", ".instance: the driver has no such port"},
        {fault, "'request':'port_info','target':0,'status':1", ".target: only for sess_info, tgt_info and scsi_cmd"},
        {fault, "'request':'scsi_cmd','lun':0,'status':1", ".lun: only for scsi_cmd with a target"},
        {fault, "'request':'tgt_info','target':0,'lun':0,'status':1", ".lun: only for scsi_cmd with a target"},
        {fault, "'request':'tgt_info','cdb':'0x12','status':1", ".cdb: only for scsi_cmd"},
        {fault, "'request':'scsi_cmd','cdb':'0x1','status':1", ".cdb: not the first bytes of a CDB such as \"0x1201\""},
        {fault, "'request':'hostno'", ": nothing fails: status, errno or sense is missing"},
    };
    for (const auto &[where, text, error] : cases) {
        auto [scenario, place] = levels[where];
        EXPECT_EQ(error_of(scenario.replace(scenario.find('@'), 1, text)), place + error);
    }
}

TEST(ScenarioTest, DocumentsAreBounded)
{
    const auto times = [](size_t count, const std::string &piece) {
        std::string text;
        while (count-- != 0)
            text += piece;
        return text;
    };
    const std::string zero(1, '\0'), four_million(4'000'000, 'x');
    const std::string ports = "{'ports':[{'driver':'pelt',", sessions = ports + "'sessions':[";
    const std::string luns = sessions + "{'luns':[", faults = "{'faults':[";
    const std::string fault = "{'driver':'pelt','request':'init','errno':1},";
    const std::pair<std::string, std::string> cases[] = {
        {"[]", "not an object"},
        {"{\n 'ports': [}", "parse error at line 2, column 12: syntax error while parsing value - unexpected '}'; "
                            "expected '[', '{', or a literal"},
        {"{'ports':1e999}", "number overflow parsing '1e999'"},
        {"{} {}", "parse error at line 1, column 4: syntax error while parsing value - unexpected '{'; "
                  "expected end of input"},
        {"{}" + zero, "parse error at line 1, column 3: a NUL byte"},
        {"{\n'" + zero, "parse error at line 2, column 2: a NUL byte"},
        {"{'x':1}" + zero, "x: unknown field"},
        {"{}x" + zero, "parse error at line 1, column 3: syntax error while parsing value - invalid literal; "
                       "last read: '{}x'; expected end of input"},
        {"{\n// \xE2\x82", "parse error at line 2, column 4: not UTF-8"},
        {"{\n//\xE2\x82\xAC\n'\xC0\x80'", "parse error at line 3, column 2: not UTF-8"},
        {"{'x", "parse error at line 1, column 4: syntax error while parsing object key - invalid string: missing "
                "closing quote; last read: '\"x'; expected string literal"},
        {"{'\\u001b[2J\\u202e':1}", "\\x1B[2J\\xE2\\x80\\xAE: unknown field"},
        {"{'" + four_million + "':1}", four_million.substr(0, 120) + "...: unknown field"},
        {"{\x7F" + four_million, "parse error at line 1, column 2: syntax error while parsing object key - invalid "
                                 "literal; last read: '{\\x7F'; expected string literal"},
        {"{'" + four_million, "parse error at line 1, column 4000003: syntax error while parsing object key - invalid "
                              "string: missing closing quote; last read: '\"" +
                                  four_million.substr(1, 119) + "...'; expected string literal"},
        {"{'failures':[{'a':1,'a':{}}]}", "failures[0].a: given twice"},
        {"{'failures':[" + times(400'000, "{},") + "[{},1,true,null,-1,'x']]}", ""},
        {"{'failures':" + std::string(63, '[') + std::string(63, ']') + "}", ""},
        {"{'failures':" + std::string(20 << 20, '['), "failures" + times(63, "[0]") + ": deeper than 64 levels"},
        {ports + "'model_name':[" + times(1'000'000, "1,") + "'x']", "ports[0].model_name: longer than 32 bytes"},
        {ports + "'repeat':65536},{'driver':'pelt'}", "ports[1]: more than 65536 ports"},
        {sessions + "{'repeat':65536},{}]", "ports[0].sessions[1]: more than 65536 sessions on a port"},
        {sessions + "{'luns':[],'repeat':65536}],'repeat':16}]}", ""},
        {sessions + "{'luns':[],'repeat':65536}],'repeat':17}", "ports[0]: more than 1048576 sessions on the host"},
        {luns + times(5, "{'lun':0,'repeat':16384},") + "{'x':1}", "ports[0].sessions[0].luns: more than 65536 LUNs"},
        {luns + "{'repeat':16384}],'repeat':64}]}]}", ""},
        {luns + "{'repeat':16384}],'repeat':64},{}", "ports[0].sessions[1]: more than 1048576 LUNs on the host"},
        {luns + "{'repeat':16384}]}],'repeat':65}", "ports[0]: more than 1048576 LUNs on the host"},
        {luns + times(64, "{'repeat':16384}]},{'luns':[") + "{},{'x':1}",
         "ports[0].sessions[64].luns: more than 1048576 LUNs on the host"},
        {luns + "{'designators':[" + times(6000, "{'eui64':'0x0011223344556677'},"),
         "ports[0].sessions[0].luns[0].designators: more than 65535 bytes of designators"},
        {faults + times(65'536, fault) + "{'x':1}", "faults: more than 65536 faults"},
    };
    for (const auto &[text, error] : cases)
        EXPECT_EQ(error_of(text), error) << text.substr(0, 100);
    // No file is made for a scenario with an error behind it.
    const std::string path = testing::TempDir() + "hostsim_no_file.img";
    EXPECT_EQ(error_of(luns + "{'file':'" + path + "'}]}]}],'x':1}"), "x: unknown field");
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    for (const auto &[given, whole] : {std::pair("host", "host:3260"), {"[fd00::7]", "[fd00::7]:3260"}, {"h:1", "h:1"}})
        EXPECT_EQ(hostsim::to_portal({.what = hostsim::kind::text, .text = given}, {}), whole);
}

} // namespace
