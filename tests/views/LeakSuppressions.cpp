// Fontconfig loses a few hundred bytes while it parses its configuration files, once per
// process, inside its own initialisation, beyond the reach of any caller. The sanitizer builds
// of these tests would report it on every run; it is not a leak of this project's.

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig.so\n";
}
