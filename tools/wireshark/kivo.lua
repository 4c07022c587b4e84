-- Wireshark dissector of kivo captures (kivo-host --capture, webconfd
-- --capture; docs/capture.md). A capture's records have the link type
-- LINKTYPE_USER0 (147): a record header of our own (kind, status,
-- addresses), then a platform message (primitive, U32 and string fields,
-- docs/platform.md) or a console line. A string holding JSON goes to
-- Wireshark's JSON dissector, so "json.member_with_value == \"queryId:3\""
-- and the like select records.
--
--   tshark -X lua_script:tools/wireshark/kivo.lua -r host.pcap -V
--
-- Installed with the tools into Wireshark's global Lua plugin directory
-- (lib/<multiarch>/wireshark/plugins), where Wireshark loads it itself.

local kivo = Proto("kivo", "kivo capture record")

local kinds = {
    [1] = "sent", [2] = "received", [3] = "local", [4] = "timer",
    [5] = "console", [6] = "dropped", [7] = "send failed",
}
local primitives = {
    [0x00000002] = "timer",
    [0x00830001] = "change request",
    [0x00830002] = "reply",
    [0x00840002] = "cache clear",
}
local TAG_U32, TAG_STRING = 0x01, 0x02

local f = {
    version = ProtoField.uint8("kivo.version", "Version"),
    kind = ProtoField.uint8("kivo.kind", "Kind", base.DEC, kinds),
    status = ProtoField.uint16("kivo.status", "Status (errno of a failed send)"),
    source = ProtoField.string("kivo.source", "Source"),
    destination = ProtoField.string("kivo.destination", "Destination"),
    line = ProtoField.string("kivo.line", "Console line"),
    primitive = ProtoField.uint32("kivo.primitive", "Primitive", base.HEX, primitives),
    tag = ProtoField.uint8("kivo.field.tag", "Tag", base.HEX, { [TAG_U32] = "U32", [TAG_STRING] = "string" }),
    u32 = ProtoField.uint32("kivo.field.u32", "U32"),
    length = ProtoField.uint32("kivo.field.length", "Length"),
    text = ProtoField.string("kivo.field.string", "String"),
}
kivo.fields = f

local bad = ProtoExpert.new("kivo.malformed", "Malformed kivo record", expert.group.MALFORMED, expert.severity.ERROR)
kivo.experts = { bad }

local json = Dissector.get("json")

local function primitive_name(value)
    return primitives[value] or string.format("0x%08x", value)
end

-- The fields of a message from `offset` to the end; false when one runs
-- past the end or has an unknown tag.
local function dissect_fields(tvb, pinfo, tree, offset)
    local index = 0
    while offset < tvb:len() do
        local left = tvb:len() - offset
        if left < 5 then
            tree:add_proto_expert_info(bad, "field header cut at the end of the message")
            return false
        end
        local tag = tvb(offset, 1):uint()
        if tag == TAG_U32 then
            local item = tree:add(f.u32, tvb(offset + 1, 4))
            item:prepend_text(string.format("Field %d ", index))
            offset = offset + 5
        elseif tag == TAG_STRING then
            local length = tvb(offset + 1, 4):uint()
            if length > left - 5 then
                tree:add_proto_expert_info(bad, string.format("string of %d bytes runs past the end", length))
                return false
            end
            local sub = tree:add(f.text, tvb(offset, 5 + length), length > 0 and tvb(offset + 5, length):string() or "")
            sub:prepend_text(string.format("Field %d ", index))
            sub:add(f.tag, tvb(offset, 1))
            sub:add(f.length, tvb(offset + 1, 4))
            if length > 0 then
                local first = tvb(offset + 5, 1):uint()
                if json ~= nil and (first == 0x7b or first == 0x5b) then
                    json:call(tvb(offset + 5, length):tvb(), pinfo, sub)
                end
            end
            offset = offset + 5 + length
        else
            tree:add_proto_expert_info(bad, string.format("unknown tag 0x%02x", tag))
            return false
        end
        index = index + 1
    end
    return true
end

function kivo.dissector(tvb, pinfo, tree)
    pinfo.cols.protocol = "KIVO"
    local root = tree:add(kivo, tvb())
    if tvb:len() < 6 then
        root:add_proto_expert_info(bad, "shorter than the record header")
        return
    end
    root:add(f.version, tvb(0, 1))
    local kind = tvb(1, 1):uint()
    root:add(f.kind, tvb(1, 1))
    root:add(f.status, tvb(2, 2))
    local slen, dlen = tvb(4, 1):uint(), tvb(5, 1):uint()
    if 6 + slen + dlen > tvb:len() then
        root:add_proto_expert_info(bad, "addresses run past the end of the record")
        return
    end
    local source = slen > 0 and tvb(6, slen):string() or ""
    local destination = dlen > 0 and tvb(6 + slen, dlen):string() or ""
    root:add(f.source, tvb(6, slen), source)
    root:add(f.destination, tvb(6 + slen, dlen), destination)
    local offset = 6 + slen + dlen
    local kind_name = kinds[kind] or ("kind " .. kind)
    local info = kind_name
    if source ~= "" or destination ~= "" then
        info = string.format("%s %s -> %s", info, source ~= "" and source or "(this process)", destination)
    end

    local payload = tvb:len() - offset
    if kind == 5 then
        local line = payload > 0 and tvb(offset, payload):string() or ""
        root:add(f.line, tvb(offset, payload), line)
        info = string.format("console %q", line)
    elseif payload < 4 then
        root:add_proto_expert_info(bad, "message shorter than its primitive")
    else
        local msg = root:add(kivo, tvb(offset, payload), "Message")
        local primitive = tvb(offset, 4):uint()
        msg:add(f.primitive, tvb(offset, 4))
        info = info .. " " .. primitive_name(primitive)
        local whole = dissect_fields(tvb, pinfo, msg, offset + 4)
        if not whole and kind ~= 6 then
            info = info .. " [malformed]"
        end
        if kind == 7 then
            info = string.format("%s (errno %d)", info, tvb(2, 2):uint())
        end
    end
    pinfo.cols.protocol = "KIVO"
    pinfo.cols.src = source
    pinfo.cols.dst = destination
    pinfo.cols.info = info
    root:append_text(", " .. info)
end

DissectorTable.get("wtap_encap"):add(wtap_encaps.USER0, kivo)
