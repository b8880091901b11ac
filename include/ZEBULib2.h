/* ZEBULib2.h -- trace log library for Linux x86-64.
 *
 * An application starts the library once per process, with a ring of trace files of its own
 * (ZEBU2_Initialize) or with one that several processes share (ZEBU2_InitializeM), and then writes
 * messages with the put functions. Each message becomes one line of fixed columns, written to the
 * current file of the ring and copied into the trace area, a memory-mapped file that all processes
 * of the host share and that a consumer drains. The library starts no thread.
 *
 * Results. Functions that return a status give 0 for success and -1 for failure; starting the
 * library and creating an instance also give 1, 2 or 3 for a partial success. The cause of the
 * calling thread's last failure is read with ZEBU2_GetLastError as one value: the function number
 * (ZEBU_FUNC_...) in the high 8 bits and the failure number (ZEBU_EPOS_...) in the low 24 bits.
 * Unless said otherwise a function clears the thread's error first, so success leaves 0.
 * "Fails with n" below means: returns -1 and leaves failure number n with the function's number.
 *
 * Threads and signals. Any thread may call any function at any time, except ZEBU2_EndLibrary.
 * Only ZEBU2_PutMsgSigSafe may be called in a signal handler.
 *
 * fork. The child of a process that uses the library may go on logging at once. A ring made by
 * ZEBU2_Initialize or ZEBU2_CreateInstance belongs to one process: in the child puts go into the file
 * that was open, fail with ZEBU_EPOS_LOCK where that is full and the parent, or another process, holds
 * a file of the ring, and take the ring over when nobody does. Shared rings and the trace area are used
 * by parent and child alike.
 */
#ifndef ZEBULIB2_H
#define ZEBULIB2_H

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ZEBU2_API __attribute__((visibility("default")))
#else
#define ZEBU2_API
#endif

/* The version of this header: major.minor.patch, the version of the shared object of the same release. */
#define ZEBU2_VERSION_MAJOR 2
#define ZEBU2_VERSION_MINOR 3
#define ZEBU2_VERSION_PATCH 16

/* ---- Failure numbers: the low 24 bits of an error value ---------------------------------------
 * "errno" says that the code given by ZEBU2_GetLastError is the errno of the failed system call;
 * otherwise the code is 0. */

#define ZEBU_EPOS_NONE 0       /* no failure */
#define ZEBU_EPOS_PARAM 1      /* invalid argument, or a trace file path that cannot be used */
#define ZEBU_EPOS_OPEN 2       /* open of a trace, management, backup or area file; errno */
#define ZEBU_EPOS_CLOSE 3      /* close; errno */
#define ZEBU_EPOS_WRITE 4      /* write failed or was short; errno, ENOSPC when it was short */
#define ZEBU_EPOS_READ 5       /* reading the header of the trace area; errno */
#define ZEBU_EPOS_MMAP 7       /* mmap, errno; or the area's path is a symbolic link, EACCES */
#define ZEBU_EPOS_UNLINK 8     /* removing an old trace file; errno */
#define ZEBU_EPOS_NOMEM 9      /* out of memory; errno */
#define ZEBU_EPOS_NOTREADY 11  /* not initialised or already so, nothing open, or no live instance */
#define ZEBU_EPOS_FLUSH 12     /* flushing written data; errno */
#define ZEBU_EPOS_OPENDIR 13   /* opendir of the trace directory during cleanup; errno */
#define ZEBU_EPOS_LSEEK 14     /* lseek; errno */
#define ZEBU_EPOS_NOCONTEXT 16 /* given by ZEBU2_GetLastError alone: the thread has no context */
#define ZEBU_EPOS_NOTDIR 17    /* a directory of the path exists but is not a directory */
#define ZEBU_EPOS_STAT 20      /* stat, lstat or fstat; errno */
#define ZEBU_EPOS_MKDIR 21     /* mkdir of a missing directory; errno */
#define ZEBU_EPOS_LOCK 22      /* the file is locked by another process; errno */
#define ZEBU_EPOS_MUNMAP 23    /* munmap; errno */
#define ZEBU_EPOS_AREA 26      /* the header of the trace area is damaged; errno as found */
#define ZEBU_EPOS_CHMOD 27     /* chmod of a trace or management file; errno */
#define ZEBU_EPOS_NOTMULTI 28  /* a lock parameter was asked of a ring that is not shared */
#define ZEBU_EPOS_MISMATCH 29  /* the files of a shared ring do not match its management file */

/* ---- Function numbers: the high 8 bits of an error value -------------------------------------- */

#define ZEBU_FUNC_NONE 0 /* no function put its number on the failure */
#define ZEBU_FUNC_SET_LOG_LEVEL 2
#define ZEBU_FUNC_SET_FILE_THRESHOLD 4
#define ZEBU_FUNC_SET_SHM_THRESHOLD 5
#define ZEBU_FUNC_INITIALIZE 6
#define ZEBU_FUNC_FINALIZE 7
#define ZEBU_FUNC_PUT_LINE 8
#define ZEBU_FUNC_PUT_ID 9
#define ZEBU_FUNC_PUT_ID_EX 10
#define ZEBU_FUNC_FILE_BUFFER_FLUSH 11
#define ZEBU_FUNC_LOG_FILE_CLEAR 12
#define ZEBU_FUNC_PUT_TO_SHM 13
#define ZEBU_FUNC_TRACE_BACKUP 14
#define ZEBU_FUNC_SET_INSTANCE_LOG_LEVEL 15
#define ZEBU_FUNC_GET_INSTANCE_LOG_LEVEL 16
#define ZEBU_FUNC_SET_INSTANCE_FILE_THRESHOLD 17
#define ZEBU_FUNC_SET_INSTANCE_SHM_THRESHOLD 18
#define ZEBU_FUNC_CREATE_INSTANCE 19
#define ZEBU_FUNC_DELETE_INSTANCE 20
#define ZEBU_FUNC_PUT_INSTANCE_LINE 21
#define ZEBU_FUNC_PUT_INSTANCE_ID 22
#define ZEBU_FUNC_PUT_INSTANCE_ID_EX 23
#define ZEBU_FUNC_INSTANCE_FILE_BUFFER_FLUSH 24
#define ZEBU_FUNC_INSTANCE_TRACE_BACKUP 25
#define ZEBU_FUNC_PUT_TYPE 32
#define ZEBU_FUNC_PUT_INSTANCE_TYPE 33
#define ZEBU_FUNC_PUT_ID_TID 35
#define ZEBU_FUNC_PUT_TYPE_TID 36
#define ZEBU_FUNC_CH_FILE_ATTR 37
#define ZEBU_FUNC_CH_INSTANCE_FILE_ATTR 38
#define ZEBU_FUNC_INITIALIZE_M 39
#define ZEBU_FUNC_CREATE_INSTANCE_M 40
#define ZEBU_FUNC_GET_LOCK_WAIT_TIME 41
#define ZEBU_FUNC_SET_LOCK_WAIT_TIME 42
#define ZEBU_FUNC_GET_LOCK_RETRY_TIMES 43
#define ZEBU_FUNC_SET_LOCK_RETRY_TIMES 44
#define ZEBU_FUNC_GET_INSTANCE_LOCK_WAIT_TIME 45
#define ZEBU_FUNC_SET_INSTANCE_LOCK_WAIT_TIME 46
#define ZEBU_FUNC_GET_INSTANCE_LOCK_RETRY_TIMES 47
#define ZEBU_FUNC_SET_INSTANCE_LOCK_RETRY_TIMES 48
#define ZEBU_FUNC_TRACE_BACKUP_M 49
#define ZEBU_FUNC_INSTANCE_TRACE_BACKUP_M 50

/* Take an error value apart: the function number and the failure number in it. */
#ifdef __cplusplus
#define ZEBU2_ERROR_FUNCTION(value) (static_cast<int>(static_cast<unsigned int>(value) >> 24))
#define ZEBU2_ERROR_FAILURE(value) (static_cast<int>(static_cast<unsigned int>(value) & 0x00FFFFFFu))
#else
#define ZEBU2_ERROR_FUNCTION(value) ((int)(((unsigned int)(value)) >> 24))
#define ZEBU2_ERROR_FAILURE(value) ((int)(((unsigned int)(value)) & 0x00FFFFFFu))
#endif

/* ---- Levels ----------------------------------------------------------------------------------- */

#define ZEBU2_LEVEL_MIN 0    /* lowest level of a message: the most important messages */
#define ZEBU2_LEVEL_MAX 1000 /* highest level of a message */
#define ZEBU2_LEVEL_OFF (-1) /* log level: nothing passes; threshold: the destination is off */

/* Suggested levels of messages, with room between them. */
#define ZEBU2_LEVEL_FATAL 0 /* the only one that passes at first */
#define ZEBU2_LEVEL_ERROR 100
#define ZEBU2_LEVEL_WARNING 200
#define ZEBU2_LEVEL_NOTICE 300
#define ZEBU2_LEVEL_INFO 400
#define ZEBU2_LEVEL_DEBUG 600
#define ZEBU2_LEVEL_TRACE 800

/* ---- The ring of trace files ------------------------------------------------------------------ */

#define ZEBU2_FILE_SIZE_MIN 4096L            /* smallest lMaxFileSize, both kinds of ring */
#define ZEBU2_FILE_SIZE_MAX 2147483647L      /* largest lMaxFileSize of a ring of one process */
#define ZEBU2_FILE_SIZE_MAX_SHARED 16777216L /* largest lMaxFileSize of a shared ring */
#define ZEBU2_FILE_COUNT_MAX 16L             /* largest lFileCount of a ring of one process */
#define ZEBU2_FILE_COUNT_MAX_SHARED 64L      /* largest lFileCount of a shared ring */
#define ZEBU2_FILE_PATH_MAX 4090             /* longest pszFilePath of a ring of one process */
#define ZEBU2_FILE_PATH_MAX_SHARED 4088      /* longest pszFilePath of a shared ring */
#define ZEBU2_APP_NAME_LENGTH 16             /* characters of an application name that are kept */
#define ZEBU2_TEXT_MAX 4117                  /* bytes of a text that a line keeps */
#define ZEBU2_ID_TEXT_MAX 4095               /* the same beside a message id */

/* Describes a ring of trace files. Read during the call it is given to, and not kept. */
typedef struct tagZEBU_LOGFILE_SPEC
{
    /* Maximum size of one trace file in bytes: 4096 to 2147483647, shared 4096 to 16777216. A file
     * of a ring of one process is left when it has grown beyond it; a shared file has this size. */
    long lMaxFileSize;
    /* Number of trace files: 1 to 16, shared 1 to 64. */
    long lFileCount;
    /* Path prefix, NUL-terminated, at most 4090 characters, shared 4088. File n is named by the
     * prefix, n in decimal, and ".log": the prefix /var/trace/app gives /var/trace/app1.log. Missing
     * directories are made with mode 0777. A prefix relative to the working directory is allowed. */
    const char* pszFilePath;
} tagZEBU_LOGFILE_SPEC;

/* Options of a shared ring, combined by OR (0 to 63). All but ZEBU2_OPT_GROW and
 * ZEBU2_OPT_NOSTARTLINE stay in force only while every process that opened the ring gave them. */
#define ZEBU2_OPT_GROW 0x01         /* raise the ring's size and number of files to this spec's */
#define ZEBU2_OPT_NOFILL 0x02       /* do not fill new files with blanks to their full size */
#define ZEBU2_OPT_CURRENT_ONLY 0x04 /* at open, make only the current file instead of all files */
#define ZEBU2_OPT_NOHEADER 0x08     /* no header at the start of a file that the ring moves on to */
#define ZEBU2_OPT_NOLOCK 0x10       /* no lock between the processes: only for one writer at a time */
#define ZEBU2_OPT_NOSTARTLINE 0x20  /* no header for the start of this process */

/* Option of the ...BackupM functions: other processes may go on writing while the copy is made. */
#define ZEBU2_BACKUP_NOLOCK 0x10

/* Handle of a trace instance. Opaque. */
typedef struct ZEBUTraceObject* ZEBU2_HINSTANCE;

/* The interface that the library keeps to, a NUL-terminated text that is the same in all versions of it. */
extern ZEBU2_API const char ZEBU2_version_string[];

/* ---- Start and stop --------------------------------------------------------------------------- */

/* Starts the process log with a ring of trace files that belongs to this process alone.
 * pSpec: the ring; null starts without trace files. pszAppName: name printed in every line, the
 * first 16 characters count; null prints blanks.
 * The ring goes on in its newest file, or in the next one when that file is full. The file is locked
 * against other processes until ZEBU2_Finalize.
 * Returns
 *    0  the trace files and the trace area are open;
 *    1  only the trace area is: invalid spec (0x06000001), null spec (0x06000000), or the open
 *       failed (0x06 and the failure: OPEN, WRITE, NOMEM, PARAM, NOTDIR, STAT, MKDIR, LOCK);
 *    2  only the trace files are: the failure of the area with function number 0 (OPEN, WRITE,
 *       READ, MMAP, NOMEM, LSEEK, STAT, MKDIR, LOCK, AREA);
 *   -1  nothing is: already initialised (0x0600000B), both failed (0x06 and the area's failure), or
 *       the calling thread's context could not be made (nothing recorded).
 * After every result but -1 the library is initialised. */
ZEBU2_API int ZEBU2_Initialize(const tagZEBU_LOGFILE_SPEC* pSpec, const char* pszAppName);

/* Starts the process log with a ring that several processes share; otherwise as ZEBU2_Initialize.
 * iOption: OR of ZEBU2_OPT_..., 0 to 63. The first process makes the ring, later ones take over its
 * size and number of files. Besides the results of ZEBU2_Initialize (with function number 0x27; the
 * open can also fail with CLOSE, READ, MMAP, LSEEK, MUNMAP):
 *    3  open, but the management file was missing beside existing trace files; the place to go on was
 *       found from the files (0x2700001D). Becomes 2 when the trace area failed too.
 * Waits for other processes at most the lock parameters (ZEBU2_SetLockWaitTime). */
ZEBU2_API int ZEBU2_InitializeM(const tagZEBU_LOGFILE_SPEC* pSpec, const char* pszAppName, int iOption);

/* Stops the process log: closes its files and lets go of the trace area, which closes when no trace
 * instance uses it. Returns 0, or -1: 0x0700000B when not initialised, 0x07 with CLOSE, LOCK or
 * MUNMAP when a close failed. The library is not initialised afterwards in any case. */
ZEBU2_API int ZEBU2_Finalize(void);

/* Frees what the library keeps for each thread. The last call of a process: no other thread may be
 * using the library, and no function of it may be called afterwards. Returns 0. */
ZEBU2_API int ZEBU2_EndLibrary(void);

/* For applications that register fork handlers. They do nothing; the library sees to its own state. */
ZEBU2_API void ZEBU2_PreForkHandler(void);
ZEBU2_API void ZEBU2_PostForkHandlerForParent(void);
ZEBU2_API void ZEBU2_PostForkHandlerForChild(void);

/* Returns the calling thread's error value, 0 when its last call succeeded or it made none, or 16
 * (ZEBU_EPOS_NOCONTEXT) when the thread can have none: out of memory or keys, or after
 * ZEBU2_EndLibrary. piErrorCode: if not null, receives the errno of the failure, or 0; untouched with
 * 16. Changes no value, may be repeated. */
ZEBU2_API int ZEBU2_GetLastError(int* piErrorCode);

/* ---- Trace instances --------------------------------------------------------------------------
 * Besides the process log a process may have any number of instances, each with its own ring, name,
 * level and thresholds (all 0 at first). They share the trace area with the process log, and need no
 * initialised process log. */

/* Creates an instance with a ring of its own. phInstance: receives the handle, or null with -1.
 * pSpec, pszAppName: as for ZEBU2_Initialize. Results as there, with function number 0x13: 0
 * complete, 1 without trace files, 2 without trace area (the instance exists with 0, 1 and 2), -1 not
 * created: phInstance null (0x13000001), out of memory (0x13000009), files and area failed. */
ZEBU2_API int ZEBU2_CreateInstance(ZEBU2_HINSTANCE* phInstance, const tagZEBU_LOGFILE_SPEC* pSpec,
                                   const char* pszAppName);

/* The same with a shared ring, options and results of ZEBU2_InitializeM, function number 0x28. */
ZEBU2_API int ZEBU2_CreateInstanceM(ZEBU2_HINSTANCE* phInstance, const tagZEBU_LOGFILE_SPEC* pSpec,
                                    const char* pszAppName, int iOption);

/* Closes an instance and frees it; no other thread may be putting through it. Returns 0, or -1: null
 * (0x14000001), not a live instance (0x1400000B), or a close failed (0x14 with CLOSE, LOCK or
 * MUNMAP): when the close of its files failed the instance lives on and can be deleted again. */
ZEBU2_API int ZEBU2_DeleteInstance(ZEBU2_HINSTANCE hInstance);

/* ---- Levels and thresholds --------------------------------------------------------------------
 * A message of level L is processed when L <= log level. Then the trace files get it when the file
 * threshold is not -1 and L >= file threshold, and the trace area gets it when the area's threshold
 * is not -1 and L <= that threshold. All are 0 at first: only messages of level 0 are written. */

/* Sets the process log level: messages above it are dropped before anything is built.
 * iLevel: -1 (nothing passes) to 1000. Returns the previous level, also when iLevel is refused;
 * refusal is seen in ZEBU2_GetLastError (0x02000001). */
ZEBU2_API int ZEBU2_SetLogLevel(int iLevel);

/* Returns the process log level. Records no error, but clears the thread's. */
ZEBU2_API int ZEBU2_GetLogLevel(void);

/* Sets the process file threshold: the files get messages of this level and above. -1 to 1000.
 * Returns the previous threshold, also when iThreshold is refused (0x04000001). */
ZEBU2_API int ZEBU2_SetFileThreshold(int iThreshold);

/* Sets the process threshold of the trace area: it gets messages of this level and below. -1 to 1000.
 * Returns the previous threshold, also when iThreshold is refused (0x05000001). */
ZEBU2_API int ZEBU2_SetShmThreshold(int iThreshold);

/* The same for one instance. Each returns the (previous) value; 0 when hInstance is null (failure
 * PARAM) or not live (NOTREADY). A refused value leaves PARAM and returns the value in force.
 * Function numbers 0x0F, 0x10, 0x11, 0x12. */
ZEBU2_API int ZEBU2_SetInstanceLogLevel(ZEBU2_HINSTANCE hInstance, int iLevel);
ZEBU2_API int ZEBU2_GetInstanceLogLevel(ZEBU2_HINSTANCE hInstance);
ZEBU2_API int ZEBU2_SetInstanceFileThreshold(ZEBU2_HINSTANCE hInstance, int iThreshold);
ZEBU2_API int ZEBU2_SetInstanceShmThreshold(ZEBU2_HINSTANCE hInstance, int iThreshold);

/* Time stamp mode: 1 prints asterisks for date and time in the lines of ZEBU2_PutLine, PutWithId,
 * PutWithIdEx and PutWithMsgType; any other value prints the local time. The setter takes every value
 * and returns it. Neither touches the thread's error. */
ZEBU2_API int ZEBU2_GetTimeStumpMode(void);
ZEBU2_API int ZEBU2_SetTimeStumpMode(int iMode);

/* ---- Lock parameters of shared rings ----------------------------------------------------------
 * How long an operation on a shared ring waits for other processes: a number of attempts to take the
 * lock (20 at first) with a pause in milliseconds between two (1 at first). Values out of range are
 * moved into it: pause >= 0, attempts >= 1. */

/* Of the process log. The getters return the value, the setters the previous one; -1 when the process
 * log has a ring of its own (0x2900001C, 0x2A00001C, 0x2B00001C, 0x2C00001C). Before initialisation
 * they act on the value that ZEBU2_InitializeM will use. */
ZEBU2_API int ZEBU2_GetLockWaitTime(void);
ZEBU2_API int ZEBU2_SetLockWaitTime(int iMilliseconds);
ZEBU2_API int ZEBU2_GetLockRetryTimes(void);
ZEBU2_API int ZEBU2_SetLockRetryTimes(int iTimes);

/* Of an instance; null stands for the values that instances made later start with. -1 when the
 * instance is not live or has no ring (NOTREADY), or its ring is not shared (NOTMULTI). Function
 * numbers 0x2D, 0x2E, 0x2F, 0x30. */
ZEBU2_API int ZEBU2_GetInstanceLockWaitTime(ZEBU2_HINSTANCE hInstance);
ZEBU2_API int ZEBU2_SetInstanceLockWaitTime(ZEBU2_HINSTANCE hInstance, int iMilliseconds);
ZEBU2_API int ZEBU2_GetInstanceLockRetryTimes(ZEBU2_HINSTANCE hInstance);
ZEBU2_API int ZEBU2_SetInstanceLockRetryTimes(ZEBU2_HINSTANCE hInstance, int iTimes);

/* ---- Putting messages -------------------------------------------------------------------------
 * iLevel: 0 to 1000. pszText: NUL-terminated, not null; ZEBU2_TEXT_MAX bytes of it are kept where no
 * message id is given, else ZEBU2_ID_TEXT_MAX. Any other text may be null and then prints blanks: pszAppName
 * 16 columns, pszThreadId 8, pszMsgId 21 (16 beside a message type), pszMsgType 4; longer texts are cut.
 *
 * Return 0 when the message was written or no destination wanted it (a line for which the trace area
 * has no room, or that its rate limit drops, is no failure), else -1: not initialised (NOTREADY);
 * level or text invalid (PARAM); the ring that was asked for is not open (NOTREADY) or failed (CLOSE, OPEN,
 * WRITE, LOCK; a shared one also STAT, MISMATCH, MMAP, MUNMAP, LSEEK); the trace area failed (AREA,
 * NOTREADY). A log started with a null spec is content without files.
 * When both failed, the area's failure is the one that is left. Without a trace area a put whose file
 * step succeeded returns 0 and leaves NOTREADY with function number 0. A message above the log level
 * returns 0 and leaves the thread's error as it was.
 *
 * When a put has returned 0, the line is with the kernel and survives the death of the process. */

/* Writes a message that has only a text. Function number 0x08. */
ZEBU2_API int ZEBU2_PutLine(int iLevel, const char* pszText);

/* Writes a message with an id. Function number 0x09. */
ZEBU2_API int ZEBU2_PutWithId(int iLevel, const char* pszMsgId, const char* pszText);

/* The same under another application name. Function number 0x0A. */
ZEBU2_API int ZEBU2_PutWithIdEx(int iLevel, const char* pszAppName, const char* pszMsgId,
                                const char* pszText);

/* Writes a message with an id and a type under another application name. Function number 0x20. */
ZEBU2_API int ZEBU2_PutWithMsgType(int iLevel, const char* pszAppName, const char* pszMsgId,
                                   const char* pszMsgType, const char* pszText);

/* As ZEBU2_PutWithIdEx with a thread id of the caller's choice; never masks the time. 0x23. */
ZEBU2_API int ZEBU2_PutWithIdAndTidEx(int iLevel, const char* pszAppName, const char* pszThreadId,
                                      const char* pszMsgId, const char* pszText);

/* As ZEBU2_PutWithMsgType with a thread id of the caller's choice; never masks the time. 0x24. */
ZEBU2_API int ZEBU2_PutWithMsgTypeAndTid(int iLevel, const char* pszAppName, const char* pszThreadId,
                                         const char* pszMsgId, const char* pszMsgType, const char* pszText);

/* The same through an instance, with its name, level, thresholds and ring; the time is never masked.
 * A null handle, an invalid level or a null text leaves PARAM, a handle that is not a live instance
 * NOTREADY. Function numbers 0x15, 0x16, 0x17, 0x21. */
ZEBU2_API int ZEBU2_PutInstanceLine(ZEBU2_HINSTANCE hInstance, int iLevel, const char* pszText);
ZEBU2_API int ZEBU2_PutInstanceWithId(ZEBU2_HINSTANCE hInstance, int iLevel, const char* pszMsgId,
                                      const char* pszText);
ZEBU2_API int ZEBU2_PutInstanceWithIdEx(ZEBU2_HINSTANCE hInstance, int iLevel, const char* pszAppName,
                                        const char* pszMsgId, const char* pszText);
ZEBU2_API int ZEBU2_PutInstanceWithMsgType(ZEBU2_HINSTANCE hInstance, int iLevel, const char* pszAppName,
                                           const char* pszMsgId, const char* pszMsgType, const char* pszText);

/* Copies ulLength raw bytes, at most ZEBU2_TEXT_MAX, as the text of a line into the trace area alone. No
 * level, no threshold and no initialisation is asked for. Returns 0, also when the area is not open (leaves
 * 11) or has no room; -1: pData null with ulLength above 0 (0x0D000001), area damaged (0x0D00001A). */
ZEBU2_API int ZEBU2_PutToShm(const void* pData, unsigned long ulLength);

/* Copies a line into the trace area alone, from a signal handler or anywhere else: async-signal-safe,
 * takes no lock, allocates nothing, reads no clock (time and thread id print as hyphens), keeps errno.
 * At most ZEBU2_TEXT_MAX bytes of pszText are kept. Returns 0 when the line was stored, else -1: pszText
 * null, the area not open or damaged, no room for the line, or another append stood in the way for too
 * long. A line that it interrupts is stored before its own; do not leave the handler by longjmp or an
 * exception. Does not touch the thread's error, except that a damaged area leaves AREA there if the
 * thread has called the library before. Stack use: less than 8 KiB. */
ZEBU2_API int ZEBU2_PutMsgSigSafe(const char* pszText);

/* Switches the notice on (1) or off (0, the default) that is sent to syslog, at LOG_INFO, when a ring
 * of one process leaves a full file. Its text is "MsgString" of the configuration file; without one no
 * notice is sent. Other values change nothing. Returns the mode in force. Touches no error. */
ZEBU2_API unsigned int ZEBU2_SetSwapMessageMode(unsigned int uMode);

/* ---- Flush, backup, permissions ---------------------------------------------------------------- */

/* Ask the kernel to bring what was written to the files to the disk, and do not wait for it. For a ring
 * of one process Linux takes note of nothing: lines reach the disk when the kernel writes them back, or
 * with syncfs on the ring's directory. Return 0, also without files after a null spec, or -1: the ring that
 * was asked for is not open (NOTREADY), flush failed (FLUSH), a shared ring's lock (LOCK), null handle
 * (PARAM), not a live instance (NOTREADY). Function numbers 0x0B and 0x18. */
ZEBU2_API int ZEBU2_FileBufferFlush(void);
ZEBU2_API int ZEBU2_InstanceFileBufferFlush(ZEBU2_HINSTANCE hInstance);

/* Copy the whole ring, oldest lines first, into the file pszBackupFile, which is made or emptied;
 * missing directories are made. iOption: 0 or ZEBU2_BACKUP_NOLOCK, for shared rings. Return 0 or -1:
 * iOption or path invalid, or the path is a file of the ring (PARAM); the ring is not open (NOTREADY; after a
 * null spec nothing is written, and the result is 0); FLUSH, OPEN, WRITE, NOTDIR, MKDIR, LOCK. Function
 * numbers 0x0E, 0x31, 0x19, 0x32. */
ZEBU2_API int ZEBU2_TraceBackup(const char* pszBackupFile);
ZEBU2_API int ZEBU2_TraceBackupM(const char* pszBackupFile, int iOption);
ZEBU2_API int ZEBU2_InstanceTraceBackup(ZEBU2_HINSTANCE hInstance, const char* pszBackupFile);
ZEBU2_API int ZEBU2_InstanceTraceBackupM(ZEBU2_HINSTANCE hInstance, const char* pszBackupFile, int iOption);

/* Change the permission bits of the ring's files, also of those made later. iMode: 0 to 07777; read
 * and write for the owner are always added. A shared ring's management file and its directory follow.
 * Return 0 or -1: iMode (PARAM), not initialised, not live or ring not open (NOTREADY), chmod (CHMOD), LOCK.
 * Function numbers 0x25 and 0x26. */
ZEBU2_API int ZEBU2_ChFileAttr(int iMode);
ZEBU2_API int ZEBU2_ChInstanceFileAttr(ZEBU2_HINSTANCE hInstance, int iMode);

/* ---- Cleanup ----------------------------------------------------------------------------------- */

#define ZEBU2_CLEAR_BY_AGE 1    /* iValue: remove files last modified at least so many seconds ago */
#define ZEBU2_CLEAR_BY_NUMBER 2 /* iValue: keep so many of the most recently modified files */

/* Removes old trace files. pszPattern: directory and wildcard pattern, at most 4096 characters;
 * wildcards count only behind the last "/", and match "/" and a leading "." too. iMode: above.
 * iValue: not negative. A file locked by another process or not writable stays. A ring of the
 * calling process is not protected from it: its matching files go too. Needs no initialised library and
 * takes none of its locks. Returns 0 or -1, function number 0x0C: PARAM, OPENDIR, STAT
 * (the scan ended there), UNLINK (the scan went on). */
ZEBU2_API int ZEBU2_LogFileClear(const char* pszPattern, int iMode, int iValue);

#ifdef __cplusplus
}
#endif

#endif
