#pragma once

// "em_host doctor": looks for what keeps this machine from creating an archive and prints a line
// for each part. Returns the exit code, 0 only when an archive could be created now.
int RunDoctor();
