#pragma once

#include <string>

// Makes `text` the current registry file: writes it to the temporary file, flushes it to the disk,
// moves the current file to the backup (unless it is missing, empty or no regular file) and the
// temporary file to the current one. A crash at any instant leaves the old or the new text, whole,
// as current file or backup.
//
// Returns false, with the reason traced, when a step fails; the temporary file is then gone and the
// current file as before. Only a failure to flush the directory comes too late for that: the new
// text is in place, but a crash of the machine may bring the old one back.
bool SaveRegistryFile(const std::string& text);
