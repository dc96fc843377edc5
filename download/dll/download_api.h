/* Download.dll: fetches one file from many HTTP sources at once and reports on the way.
 *
 * Calling convention: every export and the callback are __stdcall on Windows (DOWNLOAD_CALL);
 * the names are exported undecorated ("CreateDownloadObject", not "_CreateDownloadObject@4"),
 * so GetProcAddress finds them by their plain names in the 32-bit and the 64-bit build alike.
 * Texts are ANSI, NUL-terminated. Handles and source ids are 32-bit; 0 is never a live one.
 *
 * Life of a download: CreateDownloadObject(path), AddDownloadSource for each URL, Download to
 * start. AddDownloadSource may be called again while it runs: the source joins at once.
 * StopDownload is the user's stop (events 22 then 0). CloseDownloadObject ends the transfer and
 * frees the handle, keeping the partial file and its range map ("<path>.ranges"), so a later
 * CreateDownloadObject on the same path resumes where it left off, even after a crash.
 * DeleteDownloadObject does the same and also forgets the range map (the partial file itself is
 * the caller's to delete). Both wait for the library's thread, so they must not be called while
 * holding a lock the callback takes; called from inside the callback they return at once.
 *
 * The partial file is written at the path itself unless the environment variable
 * CORVID_DOWNLOAD_TEMP names a folder: then it lives there (with its map) until it is complete,
 * and is moved to the path before event 23.
 *
 * When a source URL names "urn:sha1:<32 base32 characters>", every source must name the same
 * SHA1 (others are refused) and the finished file must hash to it before event 23 is sent.
 */
#ifndef CORVID_DOWNLOAD_API_H
#define CORVID_DOWNLOAD_API_H

#include <stdint.h>

#ifdef _WIN32
#define DOWNLOAD_CALL __stdcall
#else
#define DOWNLOAD_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Event codes. The download's own events carry source id 0. */
enum DownloadEventCode {
    DOWNLOAD_EVENT_STOPPED = 0, /* the transfer has ended; always the last event */
    DOWNLOAD_EVENT_STARTED = 1,
    DOWNLOAD_EVENT_INVALID_SOURCE = 2, /* the source is dropped for good */
    DOWNLOAD_EVENT_WAITING_RETRY = 3,  /* "Waiting 5 seconds to retry" */
    DOWNLOAD_EVENT_CONNECTING = 4,     /* argument: text "host:port" */
    DOWNLOAD_EVENT_RESOLVE_FAILED = 5, /* argument: text, the host name */
    DOWNLOAD_EVENT_CONNECTED = 6,
    DOWNLOAD_EVENT_CONNECT_FAILED = 7,
    DOWNLOAD_EVENT_REQUEST_SENT = 9,     /* argument: text, the request lines, "\r\n" after each */
    DOWNLOAD_EVENT_HEADER_RECEIVED = 11, /* argument: text, the response head lines */
    DOWNLOAD_EVENT_RECEIVING = 12,
    DOWNLOAD_EVENT_RECEIVED = 13,    /* argument: number, bytes from this source so far */
    DOWNLOAD_EVENT_REDIRECTED = 14,  /* argument: text, the new URL */
    DOWNLOAD_EVENT_FILE_NAME = 15,   /* argument: text, the name the server gave */
    DOWNLOAD_EVENT_FILE_LENGTH = 16, /* argument: const uint32_t[3]: length low and high
                                        words, bytes already on disk (capped at 2^32-1) */
    DOWNLOAD_EVENT_TIMED_OUT = 17,
    DOWNLOAD_EVENT_PROGRESS = 18,   /* about once a second while data comes in */
    DOWNLOAD_EVENT_HTTP_ERROR = 19, /* argument: number, the HTTP status or a DOWNLOAD_ERROR_ */
    DOWNLOAD_EVENT_DISCONNECTED = 20,
    DOWNLOAD_EVENT_NO_VALID_SOURCE = 21,
    DOWNLOAD_EVENT_USER_ABORTED = 22,
    DOWNLOAD_EVENT_SUCCEEDED = 23
};

/* Numbers of event 19 that are not HTTP statuses. */
enum DownloadErrorCode {
    DOWNLOAD_ERROR_SHA1_MISMATCH = 900, /* the finished file does not hash to the URN's SHA1 */
    DOWNLOAD_ERROR_WRITE_FAILED = 901,  /* the file could not be written */
    DOWNLOAD_ERROR_PROTOCOL = 902       /* the source's answer is not HTTP this library reads */
};

/* GetDownloadInfo codes; -1 for an unknown handle or code. */
enum DownloadInfoCode {
    DOWNLOAD_INFO_TRANSFERRING = 0,      /* 1 while the download runs, else 0 */
    DOWNLOAD_INFO_SPEED = 1,             /* bytes per second */
    DOWNLOAD_INFO_SOURCES = 2,           /* every source accepted */
    DOWNLOAD_INFO_SOURCES_RECEIVING = 3, /* receiving data now */
    DOWNLOAD_INFO_SOURCES_FAILED = 4,    /* given up: invalid or out of attempts */
    DOWNLOAD_INFO_SOURCES_PENDING = 5,   /* connecting, asking, idle or waiting to retry */
    DOWNLOAD_INFO_PERCENT = 6            /* 0-100; -1 while the length is unknown */
};

/* Called on the library's own threads. The argument is a text (const char*, valid during the
 * call only) for events 4, 5, 9, 11, 14, 15; a number for 13 and 19; a pointer to three 32-bit
 * words for 16; 0 otherwise. The return value is not used. */
typedef int(DOWNLOAD_CALL* DownloadEventCallback)(void* context, uint32_t handle, uint32_t sourceId,
                                                  int32_t event, intptr_t argument);

uint32_t DOWNLOAD_CALL CreateDownloadObject(const char* localPath);
/* 0 when refused: not an http URL, malformed, another SHA1, or the download has ended. */
uint32_t DOWNLOAD_CALL AddDownloadSource(uint32_t handle, const char* url);
/* 1 when started; 0 for an unknown handle or a second call. */
int32_t DOWNLOAD_CALL Download(uint32_t handle, DownloadEventCallback callback, void* context);
/* sourceId is reserved: pass 0. */
int32_t DOWNLOAD_CALL GetDownloadInfo(uint32_t handle, uint32_t sourceId, int32_t infoCode);
void DOWNLOAD_CALL StopDownload(uint32_t handle);
void DOWNLOAD_CALL CloseDownloadObject(uint32_t handle);
void DOWNLOAD_CALL DeleteDownloadObject(uint32_t handle);

#ifdef __cplusplus
}
#endif

#endif
