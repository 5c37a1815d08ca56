#pragma once

class QObject;

// Test builds only: with GLINT_CRASH_TRIGGER=stdin in the environment the
// program reads commands from its standard input and crashes on request.
//   threads N  start idle threads until the process has N
//   null | abort | exception | divide | stack | double
// Before a crash it prints "fault <threads> <CLOCK_REALTIME ns>" to standard
// output and logs the number of threads.
namespace CrashTrigger {

void armFromEnvironment(QObject *parent);

} // namespace CrashTrigger
