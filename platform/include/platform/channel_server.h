/* The request channel on a unix-domain stream socket: the daemon's side.
 *
 * A frame is a length of 4 bytes, most significant first, and that many bytes of a protobuf message
 * `frame` (generated/messages.proto), 1 to MESSAGE_FRAME_MAX. A frame that is longer, empty or cut
 * off, one that cannot be read, one that is no request, and a peer that goes away in the middle of
 * a reply end that connection with a trace (platform module, level 4) and nothing else. A
 * connection's next request is read when its last reply has been taken, so that a slow peer holds
 * nobody up and no more than one reply in memory.
 *
 * There are so many places, and a connection has one from the first byte of its first request on;
 * until then it is a descriptor that waits. They are shared between users, each the one who made
 * the connection. Root and the process's own user are favoured, and held to no bound but the
 * process's descriptors:
 *   1. Nobody else has more connections than half as many as there are places, at least one, and
 *      all others together have at most twice as many as there are places. One that is beyond is
 *      taken in and closed with a negative acknowledgement that says why, unless another gives way:
 *      one of the same user to the share; one of a user with no fewer connections to the whole.
 *   2. A sixteenth of the places is kept for the favoured.
 *   3. Who begins to ask when all places are taken waits, unanswered, until a connection ends or
 *      gives way: to a favoured user any, else one of a user who holds no fewer places.
 * Who gives way while others wait:
 *   1. one that has not begun to ask for CHANNEL_SILENCE_MS milliseconds (it holds no place, so not
 *      for the sake of one);
 *   2. without any of these, of the connections that have been answered and have nothing under way
 *      the one idle longest;
 *   3. without any of these, one whose peer has not ended a frame that it began, or not taken the
 *      whole of a reply, for CHANNEL_PATIENCE_S seconds, however much of it came or went meanwhile;
 *      for a place CHANNEL_CROWDING_PATIENCE_S seconds are enough when its user is not favoured and
 *      holds more places than there are for each user when they are divided equally.
 * One that gives way unanswered is told so as well. Nothing is under way when every reply has been
 * sent and nothing of a request has come in, read or unread. So no request that was sent whole
 * loses its reply to a newcomer, unless its peer does not take the reply. A peer that goes on
 * asking keeps its place, as does a request that is with its handler. In any other way a place can
 * be held for that long with each frame and for that long with each reply; it is noticed within 300
 * ms. */
#ifndef PLATFORM_CHANNEL_SERVER_H
#define PLATFORM_CHANNEL_SERVER_H

#include <stdint.h>

#include "platform/export.h"
#include "platform/status.h"

#define CHANNEL_CONNECTIONS_DEFAULT 128u
#define CHANNEL_CONNECTIONS_MAX     4096u
#define CHANNEL_SILENCE_MS          250u
#define CHANNEL_PATIENCE_S          5u
#define CHANNEL_CROWDING_PATIENCE_S 1u

typedef struct channel_server channel_server;

/* Listens on a path.
 * path             where the socket is made, with mode 0660; at most 107 characters. A socket file
 *                  that nobody listens on is replaced; one in use, and any other file, stays.
 *                  While it is made an empty file PATH.lock lies beside it. Whoever else may write
 *                  into the folder can keep the server from listening; no other user can.
 * group            the socket belongs to it and its members may connect, besides root and the
 *                  process's own user; null for none.
 * connections_max  how many places there are; 0 for the default.
 * server           receives the server.
 *
 * Returns 0; CHANNEL_ERR_INVALID_ARG; CHANNEL_ERR_NO_MEMORY; CHANNEL_ERR_SYSTEM, and errno tells
 * why: EADDRINUSE (somebody listens there), ENOTSOCK (another file is there), EAGAIN (another
 * process is making a socket there), EEXIST (PATH.lock is somebody's file), ENAMETOOLONG, ESRCH (no
 * such group), or what the system said. Takes SIGPIPE from nobody: writes are made without it. */
PLATFORM_API uint32_t channel_server_open(const char *path, const char *group,
                                          uint32_t connections_max,
                                          channel_server **server) PLATFORM_NOEXCEPT;

/* A descriptor that is readable whenever there is something to do; for the host's event loop. */
PLATFORM_API int channel_server_fd(const channel_server *server) PLATFORM_NOEXCEPT;

/* Does what there is to do and never blocks: takes connections, reads requests, calls their
 * handlers, writes replies. Each connection gets one request a call, and 64 peers are taken in or
 * refused. Not to be called from a handler.
 * Without a free descriptor a connection gives way as above, or else the newcomer is turned away;
 * when peers cannot be taken in for another reason, it is tried again when a connection ends, and
 * four times a second. Until then they do not make the descriptor readable.
 * Cost: constant for each event and each peer, refused or not. Where somebody has to give way the
 * connections are walked, for each user in vain at most twice a call. */
PLATFORM_API void channel_server_process(channel_server *server) PLATFORM_NOEXCEPT;

/* Live connections. */
PLATFORM_API uint32_t channel_server_connections(const channel_server *server) PLATFORM_NOEXCEPT;

/* Closes every connection and removes the socket file, if it is still this server's. Responses that
 * are pending are dropped: their connections must not be used any more. Null is accepted. */
PLATFORM_API void channel_server_close(channel_server *server) PLATFORM_NOEXCEPT;

#endif
