#pragma once

// Files of the build and of the sources, by their absolute names. A test program has those that its
// CMakeLists.txt gives it with em_talvor_built_files().
extern const char* const EM_TALVOR_LIBRARY;  // the module
extern const char* const EM_HOST;
extern const char* const QAMREG;
extern const char* const SAMPLE_COLLECTOR;
extern const char* const IMPOSTORS_LIBRARY;  // exports what the module calls its own
extern const char* const NO_MODULE;          // a library that is none
extern const char* const STUBBORN_MODULE;    // stays loaded
extern const char* const CONFORMANCE_PAGE;
extern const char* const SOURCE_DIRECTORY;
