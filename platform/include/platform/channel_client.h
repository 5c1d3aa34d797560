/* The request channel: the asking side. A client sends requests and takes the messages of the reply
 * one by one, over a socket or inside the process.
 *
 * A client belongs to one caller; nothing here needs an event loop. */
#ifndef PLATFORM_CHANNEL_CLIENT_H
#define PLATFORM_CHANNEL_CLIENT_H

#include <stdint.h>

#include "platform/channel.h"
#include "platform/export.h"
#include "platform/messages.h"

typedef struct channel_client channel_client;

/* Connects to the daemon that listens on a path.
 * timeout_ms  for connecting, and for every send and receive of this client; 0 waits forever.
 * Returns 0; CHANNEL_ERR_INVALID_ARG; CHANNEL_ERR_NO_MEMORY; CHANNEL_ERR_SYSTEM, and errno tells
 * why (ENOENT and ECONNREFUSED: nobody listens; EACCES: not permitted). */
PLATFORM_API uint32_t channel_client_connect(const char *path, uint32_t timeout_ms,
                                             channel_client **client) PLATFORM_NOEXCEPT;

/* A client inside the process: a request that it sends is handled before channel_client_send()
 * returns.
 * connection  receives the connection that handlers see, which lives as long as the client; may be
 *             null. One in error goes on taking requests, and hands its error to their handlers.
 * Returns 0; CHANNEL_ERR_INVALID_ARG; CHANNEL_ERR_NO_MEMORY. */
PLATFORM_API uint32_t channel_client_open_memory(channel_client **client,
                                                 channel_connection **connection) PLATFORM_NOEXCEPT;

/* Sends one message. Returns 0; the marshal function's status; CHANNEL_ERR_CLOSED when the daemon
 * has ended the connection: what it said before (a refusal, say) can still be received;
 * CHANNEL_ERR_NO_ROOM inside the process while a response is pending or its handler runs;
 * CHANNEL_ERR_TIMEOUT; CHANNEL_ERR_NO_MEMORY; CHANNEL_ERR_SYSTEM. */
PLATFORM_API uint32_t channel_client_send(channel_client *client, const void *message,
                                          message_marshal_fn marshal) PLATFORM_NOEXCEPT;

/* Takes the next message that came in, waiting for it.
 * received  given back with message_destroy(); null on failure.
 * Returns 0; CHANNEL_ERR_CLOSED when the daemon ended the connection and nothing is left (also in
 * the middle of a frame); CHANNEL_ERR_FRAME for what is no message of the set; CHANNEL_ERR_TIMEOUT,
 * inside the process as soon as nothing is left; CHANNEL_ERR_NO_MEMORY; CHANNEL_ERR_SYSTEM.
 * After CHANNEL_ERR_TIMEOUT nothing is lost: the part of a message that came in is kept, and the
 * next call waits for the rest. */
PLATFORM_API uint32_t channel_client_receive(channel_client *client,
                                             received_message **received) PLATFORM_NOEXCEPT;

/* The definitions for messages that this client makes; they live as long as the client. */
PLATFORM_API const message_definitions *channel_client_definitions(const channel_client *client)
    PLATFORM_NOEXCEPT;

/* Ends the connection; null is accepted. */
PLATFORM_API void channel_client_close(channel_client *client) PLATFORM_NOEXCEPT;

#endif
