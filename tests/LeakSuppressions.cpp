/// What other people's libraries never free. libvorbis loses a setup of 2848 bytes with every encoder of six
/// channels, libsndfile one with every Ogg file whose headers are broken; fontconfig keeps its patterns. The
/// JSON library loses an object that it makes of a list when memory ends halfway.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" const char* __lsan_default_suppressions();
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" const char* __lsan_default_suppressions() {
    return "leak:vorbis_encode_setup_init\nleak:vorbis_info_init\nleak:libfontconfig\n"
           "leak:basic_json(std::initializer_list\n";
}
