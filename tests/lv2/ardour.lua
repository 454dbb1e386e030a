-- Puts a plugin on a track of a session without sound card: ardour7-lua ardour.lua FOLDER URI CHANNELS PRESETS,
-- where PRESETS is a file of names to load. Prints a line per fact, a word and its value.
local folder, uri, channels = arg[1], arg[2], tonumber(arg[3])
local session = create_session(folder, "zuc", 48000)
local processor = ARDOUR.LuaAPI.new_plugin(session, uri, ARDOUR.PluginType.LV2, "")
local track = session:new_audio_track(channels, channels, nil, 1, "track", ARDOUR.PresentationInfo.max_order,
                                      ARDOUR.TrackMode.Normal, true):front()
print("added", track:add_processor_by_index(processor, 0, nil, true))
local insert = processor:to_insert()
local plugin = insert:plugin(0)
print("latency", insert:signal_latency())
print("inputs", insert:input_streams():n_audio())
print("outputs", insert:output_streams():n_audio())
print("side", insert:natural_input_streams():n_audio() - insert:input_streams():n_audio())
print("maker", plugin:maker())
for name in io.lines(arg[4]) do
    local preset = plugin:preset_by_label(name)
    if preset and plugin:load_preset(preset) then
        print("preset", plugin:last_preset().label)
    end
end
session:save_state("")
close_session()
quit()
