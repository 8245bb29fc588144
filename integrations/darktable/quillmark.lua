--[[
Quillmark as a target storage of darktable's export module: darktable develops and exports the pictures, and hands the
files to Quillmark.

To install, add this line to ~/.config/darktable/luarc:

    dofile("/usr/share/quillmark/darktable/quillmark.lua")

The exported files are kept in a folder of their own below ~/.local/share/Quillmark/darktable until all of them are at the
service: an export that breaks off can go on with them.
]]

local dt = require "darktable"

local NAME = "quillmark"
local TITLE = "Quillmark proofing service"

dt.configuration.check_version(NAME, {9, 0, 0})

-- The two ways to hand files over.
local LIGHT_TABLE = "show in Quillmark"
local COMMAND = "send at once"

local function preference(name)
    return dt.preferences.read(NAME, name, "string")
end

local function entry(name, tooltip)
    return dt.new_widget("entry") {text = preference(name), tooltip = tooltip, editable = true}
end

local way = dt.new_widget("combobox") {
    label = "pictures",
    tooltip = "where they go: to Quillmark's light table, or to the event and category below",
    LIGHT_TABLE,
    COMMAND,
}
if preference("way") == COMMAND then
    way.selected = 2
end
local account = entry("account", "account at the service, whose password Quillmark remembers; empty: the remembered one")
local event = entry("event", "the event's name or id")
local category = entry("category", "the category; empty: one for each film roll")

local function labelled(label, widget)
    return dt.new_widget("box") {orientation = "horizontal", dt.new_widget("label") {label = label}, widget}
end

local widget = dt.new_widget("box") {
    orientation = "vertical",
    way,
    labelled("account", account),
    labelled("event", event),
    labelled("category", category),
}

local function remember()
    dt.preferences.write(NAME, "way", "string", way.value)
    dt.preferences.write(NAME, "account", "string", account.text)
    dt.preferences.write(NAME, "event", "string", event.text)
    dt.preferences.write(NAME, "category", "string", category.text)
end

-- For a shell: the text as one word, whatever is in it.
local function quoted(text)
    return "'" .. text:gsub("'", "'\\''") .. "'"
end

local function run(command)
    return dt.control.execute(command) == 0
end

-- A command can't hold the names of many pictures: they go through a file.
local function write_list(extra)
    local path = extra.folder .. "/files"
    local file = io.open(path, "wb")
    if not file then
        return nil
    end
    local written = file:write(table.concat(extra.files, "\0"), "\0")
    return file:close() and written and path
end

local function base_name(path)
    return path:match("[^/]+$") or path
end

local function exists(path)
    local file = io.open(path, "rb")
    if file then
        file:close()
    end
    return file ~= nil
end

-- A path in the folder that no file has yet, so that pictures of one name do not replace each other.
local function free_path(folder, name)
    local stem, extension = name:match("^(.+)(%.[^.]*)$")
    if not stem then
        stem, extension = name, ""
    end
    local path = folder .. "/" .. name
    local number = 2
    while exists(path) do
        path = string.format("%s/%s-%d%s", folder, stem, number, extension)
        number = number + 1
    end
    return path
end

local function supported(_, format)
    local mime = format.mime
    return mime == "image/jpeg" or mime == "image/png" or mime == "image/tiff" or mime == "image/webp"
end

local function initialize(_, _, _, _, extra)
    remember()
    local data = os.getenv("XDG_DATA_HOME")
    if not data or data:sub(1, 1) ~= "/" then
        data = os.getenv("HOME") .. "/.local/share"
    end
    extra.folder = string.format("%s/Quillmark/darktable/%s-%d", data, os.date("%Y%m%d-%H%M%S"), math.random(1e9))
    extra.files = {}
    extra.failed = 0
    return nil
end

-- Called for each picture, with the file in darktable's temporary folder. It leaves that folder at once: the next picture
-- may have the same name.
local function store(_, image, _, filename, number, total, _, extra)
    -- The film roll's name becomes the pictures' project.
    local folder = extra.folder .. "/" .. base_name(image.film.path)
    local moved
    if run("mkdir -p -m 700 -- " .. quoted(folder)) then
        moved = free_path(folder, base_name(filename))
        moved = run("mv -n -- " .. quoted(filename) .. " " .. quoted(moved)) and moved
    end
    if moved then
        table.insert(extra.files, moved)
        dt.print(string.format("Quillmark: %d of %d pictures exported", number, total))
    else
        extra.failed = extra.failed + 1
        os.remove(filename)
        dt.print("Quillmark: " .. base_name(filename) .. " could not be kept for the export")
    end
end

local function show(extra, list)
    -- On its own: it goes on when darktable ends. setsid -f itself does not tell of a program that is not there.
    if run("command -v quillmark >/dev/null && setsid -f quillmark --files0-from=" .. quoted(list) .. " </dev/null >/dev/null 2>&1") then
        dt.print(string.format("%d pictures are on Quillmark's light table", #extra.files))
    else
        dt.print("Quillmark could not be started; the pictures are in " .. extra.folder)
    end
end

local function send(extra, list)
    local command = {"quillmark-export", "--quiet"}
    local function option(name, value)
        if value ~= "" then
            table.insert(command, quoted("--" .. name .. "=" .. value))
        end
    end
    option("user", account.text)
    option("event", event.text)
    if category.text == "" then
        table.insert(command, "--auto-categories")
    else
        option("category", category.text)
    end
    local log = extra.folder .. "/quillmark-export.log"
    -- No terminal: a password that is not remembered can't be asked for.
    table.insert(command, "--files0-from=" .. quoted(list) .. " </dev/null >" .. quoted(log) .. " 2>&1")
    dt.print(string.format("Quillmark: sending %d pictures", #extra.files))
    local statement = "setsid -w " .. table.concat(command, " ")
    -- Before the export began there was nothing to go on with. 126 and 127: the command can't be run, or is not there.
    local not_begun = "case $? in 2 | 3 | 4 | 126 | 127) touch -- " .. quoted(extra.folder .. "/not-begun") .. " ;; esac"
    if run(statement .. " || { " .. not_begun .. "; false; }") then
        run("rm -rf -- " .. quoted(extra.folder))
        dt.print(string.format("Quillmark: all %d pictures are at the service", #extra.files))
    elseif exists(extra.folder .. "/not-begun") then
        dt.print("Quillmark: the export could not begin; the pictures are in " .. extra.folder .. ". See " .. log)
    else
        dt.print("Quillmark: not all pictures are at the service; \"quillmark-export --resume\" goes on. See " .. log)
    end
end

-- Called once at the end. darktable's own table lacks pictures of equal names, so ours counts.
local function finalize(_, _, extra)
    if extra.failed > 0 then
        dt.print_error(string.format("Quillmark: %d pictures are missing", extra.failed))
    end
    if not extra.files or #extra.files == 0 then
        return
    end
    local list = write_list(extra)
    if not list then
        dt.print_error("Quillmark: the pictures are in " .. extra.folder .. ", and could not be handed over")
    elseif way.value == COMMAND then
        send(extra, list)
    else
        show(extra, list)
    end
end

dt.register_storage(NAME, TITLE, store, finalize, supported, initialize, widget)
