-- Makes darktable export the pictures of a folder as a person would who selects all of them and presses "export".
local dt = require "darktable"

-- Says how far it has come, for whoever reads the log.
local function step(text)
    io.stderr:write("drive: ", text, "\n")
end

-- Notes when the export has begun.
local begun = false
local register_storage = dt.register_storage
dt.register_storage = function(name, title, store, finalize, supported, initialize, widget)
    register_storage(name, title, store, finalize, supported, function(...)
        begun = true
        step("begun")
        return initialize(...)
    end, widget)
end

dofile(os.getenv("QUILLMARK_SOURCE_DIR") .. "/integrations/darktable/quillmark.lua")
step("loaded")
dt.control.dispatch(function()
    step("dispatched")
    -- The export module is there once the light table is.
    while dt.gui.current_view().id ~= "lighttable" do
        dt.control.sleep(50)
    end
    step("light table")
    for film in os.getenv("TEST_FILM_ROLLS"):gmatch("[^\n]+") do
        dt.database.import(film)
    end
    step("imported")
    local pictures = {}
    while #pictures < tonumber(os.getenv("TEST_PICTURES")) do
        dt.control.sleep(50)
        pictures = {}
        for _, picture in ipairs(dt.database) do
            table.insert(pictures, picture)
        end
    end
    dt.gui.selection(pictures)
    step("selected")
    -- The button does nothing until it has heard of the selection.
    while not begun do
        dt.gui.action("lib/export/export", 0, "", "", 1.0)
        for _ = 1, 100 do
            if not begun then
                dt.control.sleep(50)
            end
        end
    end
end)
