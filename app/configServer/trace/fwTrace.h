// The service's own trace: formatted lines on standard error (or a file) copied to the system log,
// and the chunked file copy used by the configuration file writer.
#pragma once

// Writes one line when nLevel is at most the sink's level (5 after set-up). The format carries
// its own tag and source position ("war[%-16s:%-4d]...").
void fwTracePrint(int nLevel, const char* szFormat, ...) __attribute__((format(printf, 2, 3)));

// Moves the sink to a file opened "a+" (null or unopenable: standard error) and sets its level.
int fwTraceSetOutput(const char* szPath, int nLevel);

// Copies a file in 512 KiB blocks, replacing the target. 0 when both files opened, else -1.
int fwCopyFile(const char* szSource, const char* szTarget);

// Copies "/tmp/Messages" to "/config/upgrade.log". 0 on success, else -1.
int fwSaveFirmwareTrace();

// Test seam: where lines go instead of syslog(3). Null restores syslog. Returns the previous one.
typedef void (*fwSyslogWriter)(int nPriority, const char* szText);
fwSyslogWriter fwTraceSetSyslogWriter(fwSyslogWriter pWriter);

// Test seam: the number of reads of the last fwCopyFile, and of its writes.
void fwCopyFileLastCounts(int* pnReads, int* pnWrites);
