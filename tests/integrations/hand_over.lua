-- Hands pictures to the script as darktable's export does, without darktable. The arguments: the way, the film roll's
-- path, and the pictures' files.
local settings = {way = arg[1], account = "ann", event = "77", category = ""}
local film = arg[2]
local files = table.move(arg, 3, #arg, 1, {})

local storage
local function say(text)
    io.stdout:write(text, "\n")
end

package.preload["darktable"] = function()
    return {
        configuration = {check_version = function() end},
        preferences = {
            read = function(_, name)
                return settings[name]
            end,
            write = function() end,
        },
        new_widget = function(kind)
            return function(fields)
                fields.kind = kind
                fields.value = settings.way
                return fields
            end
        end,
        control = {
            execute = function(command)
                local _, _, status = os.execute(command)
                return status
            end,
        },
        print = say,
        print_error = say,
        register_storage = function(_, _, store, finalize, _, initialize)
            storage = {store = store, finalize = finalize, initialize = initialize}
        end,
    }
end

dofile(os.getenv("QUILLMARK_SOURCE_DIR") .. "/integrations/darktable/quillmark.lua")
local extra = {}
storage.initialize(nil, nil, nil, nil, extra)
for number, file in ipairs(files) do
    storage.store(nil, {film = {path = film}}, nil, file, number, #files, nil, extra)
end
storage.finalize(nil, nil, extra)
