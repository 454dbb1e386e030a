#pragma once

namespace zuc::cli {

// What stands below the options in the commands' help.

inline constexpr const char* kExamples =
    "Examples:\n"
    "  zuc list                                     show every effect\n"
    "  zuc describe amplify                         show its parameters and presets\n"
    "  zuc process in.wav out.wav -e amplify:gain=-6dB\n"
    "  zuc process in.wav out.flac -e 'amplify:preset=+3dB Boost' --on-clip limit\n"
    "  cat in.wav | zuc process - - -e amplify:gain=3dB | aplay\n"
    "  zuc remix song.wav short.wav --to 2:37       a song as long as you want\n"
    "  zuc generate noise pink.wav --duration 10s   make sound from nothing\n"
    "  zuc demo                                     hear what it does\n"
    "\n"
    "'zuc COMMAND --help' tells more about a command.";

inline constexpr const char* kProcessExamples =
    "An effect is NAME or NAME:SETTING=VALUE,SETTING=VALUE… or @chain.json:\n"
    "  -e amplify:gain=-6dB              all channels\n"
    "  -e amplify:gain.1=-6dB,gain.2=0   channel by channel\n"
    "  -e 'amplify:preset=+3dB Boost'    a preset, of the effect or saved by you\n"
    "Values carry units (-6dB, 348.8ms, 0.35s, 1.2kHz, 64%, on, off); without one they are in the\n"
    "parameter's own unit. 'zuc describe EFFECT' shows the settings.\n"
    "A curve moves a parameter along points of time, counted from the start of the file, in "
    "straight\n"
    "lines in the parameter's own unit:\n"
    "  -a echo.decay-left:0s=64%,5s=20%\n"
    "  -a 'amplify.gain:0=-6dB hold,1:30=0dB'   hold: until the next point\n"
    "  -a echo#2.echo-level-left:@level.csv     of the second echo; rows time,value[,hold]\n"
    "  -a gain-envelope.curve:0s=0dB,2s=-12dB   the curve of an envelope effect\n"
    "\n"
    "Examples:\n"
    "  zuc process in.wav out.wav -e amplify:gain=-6dB\n"
    "  zuc process in.wav out.flac --bits 16 --on-clip limit -e amplify:gain=+12dB\n"
    "  zuc process music.wav ducked.wav --sidechain voice.wav -e 'dynamics:preset=Smooth Vocal'\n"
    "  zuc process in.wav out.wav --loudness -16LUFS           as loud as a podcast\n"
    "  zuc process in.wav part.wav --range 0:30..1:00          cut a part\n"
    "  zuc process in.wav out.wav --chain voice.json --tail 2  two seconds behind the end\n"
    "  zuc process - - --format flac -e amplify < in.wav > out.flac\n"
    "\n"
    "The output begins where the input does, whatever the latency of the effects. It appears whole "
    "or\n"
    "not at all. Exit codes: 0 done, 1 processing, 2 usage, 3 input, 4 output, 6 clipped,\n"
    "130 and 143 interrupted.";

inline constexpr const char* kGenerateExamples =
    "'zuc describe GENERATOR' shows its settings and presets.\n"
    "\n"
    "Examples:\n"
    "  zuc generate noise pink.wav --duration 10s\n"
    "  zuc generate noise hiss.flac 'preset=Hiss 4k-20k' seed=7 --bits 24 --channels 1\n"
    "  zuc generate noise room.wav color=brown level=-30dB -e 'echo:preset=Spooky' --rate 44.1k\n"
    "  zuc generate noise - --format wav --bits 16 --duration 1:30 | aplay\n"
    "The same seed from 1 up gives the same file each time.";

inline constexpr const char* kReplayExamples =
    "SCRIPT.json: {\"effect\": \"Amplify\", \"rate\": 48000, \"channels\": 2, \"events\": [\n"
    "  {\"op\": \"param\", \"index\": 2, \"n\": 0.7}, {\"op\": \"resume\"},\n"
    "  {\"op\": \"process\", \"frames\": 4800, \"block\": 256}, {\"op\": \"get\", \"index\": 0}]}\n"
    "Operations: rate, channels, param, preset, begin, end, resume, suspend, process, get, "
    "latency,\n"
    "name, curve. The output is 32-bit float: exactly the processed frames, latency included.\n"
    "\n"
    "Example:\n"
    "  zuc replay script.json in.wav out.wav --log answers.json";

inline constexpr const char* kPlotExamples =
    "Kinds:\n"
    "  beats      waveform, onsets and beats of a file, and which beats sound alike\n"
    "  remix      a song, its remix by a plan, and what of the one is where in the other\n"
    "  impulse    what comes out for one impulse in each channel, over time\n"
    "  response   magnitude over frequency, from the impulse\n"
    "  transfer   output level over input level, of an effect with such a curve\n"
    "  gain       waveform, levels and gain of a recording over time\n"
    "  curve      parameters that -a moves and curves of envelopes, over time\n"
    "  waveform   the samples of audio files\n"
    "\n"
    "Examples:\n"
    "  zuc plot transfer -e 'dynamics:preset=Classic Soft Knee' -o knee.svg\n"
    "  zuc plot gain voice.wav -e 'dynamics:preset=Smooth Vocal' -o gain.png\n"
    "  zuc plot impulse -e echo:preset=Spooky -o spooky.svg\n"
    "  zuc plot response -e echo:echo-bounce=on --length 2 -o response.png\n"
    "  zuc plot curve -e echo -a echo.decay-left:0s=64%,5s=20% -o curve.svg\n"
    "  zuc plot beats song.wav -o beats.svg\n"
    "  zuc plot remix song.wav plan.json -o remix.svg\n"
    "  zuc plot waveform in.wav out.wav -o both.png";

inline constexpr const char* kRemixExamples =
    "Plays the beats of the song in another order, with joins that nobody hears. It begins and "
    "ends as the\n"
    "song does; its length is the target give or take some seconds, which --slack allows for the "
    "end's sake.\n"
    "\n"
    "Examples:\n"
    "  zuc remix song.wav short.wav --to 2:37\n"
    "  zuc remix song.flac 'song-%T.flac' --to 0:15,0:30,1:00     three from one analysis\n"
    "  zuc remix song.wav loop.wav --percent 200 --no-end\n"
    "  zuc remix song.wav jingle.wav --to 0:30 --exact            to the sample, with a fade\n"
    "  zuc remix song.wav out.wav --to 3:00 --report out.html     look at it, hear the joins\n"
    "  zuc remix song.wav --to 3:00 --plan-out plan.json          a plan to keep and edit\n"
    "  zuc remix song.wav out.wav --plan plan.json                plays it, always the same\n"
    "  zuc remix song.wav out.wav --to 3:00 --stems tracks/       the tracks too, into out-stems/\n"
    "\n"
    "Exit codes: 0 done, 1 processing, 2 usage, 3 input, 4 output, 7 there is no such remix,\n"
    "130 and 143 interrupted.";

inline constexpr const char* kPlayExamples =
    "While it plays, lines on standard input change it:\n"
    "  echo.decay-left 40%        a parameter; echo#2.decay-left of the second echo\n"
    "  echo.preset Spooky         a preset\n"
    "  status, help, quit\n"
    "\n"
    "Examples:\n"
    "  zuc play song.flac -e echo:preset=Spooky\n"
    "  zuc play drums.wav --loop -e chorus -e parametric-equalizer\n"
    "  zuc play --list-devices";

inline constexpr const char* kPresetExamples =
    "Examples:\n"
    "  zuc preset list amplify\n"
    "  zuc preset show amplify '+3dB Boost'\n"
    "  zuc preset save amplify 'My Boost' gain=+4dB\n"
    "Saved presets are used like those of the effect: -e 'amplify:preset=My Boost'";

inline constexpr const char* kValidateNotes =
    "Levels: 1 parameters, presets, settings, layouts, sound; 3 blocks, latency, tail, "
    "clicks and "
    "more;\n5 hostile values and threads too; each further level draws twice as often,\n"
    "10 has an hour of sound for each effect as well.\n"
    "Real-time safety is checked when a guard is present:\n"
    "  LD_PRELOAD=librtguard.so zuc validate\n"
    "Exit code 6 when a promise is broken.";

inline constexpr const char* kConsoleExamples =
    "Examples:\n"
    "  zuc console --list\n"
    "  zuc console 'SetTimeStretchPreviewQ 12'\n"
    "What is set lasts as long as the command: 'zuc process --set NAME=VALUE' changes a "
    "job.";

}  // namespace zuc::cli
