/* The request channel as a command handler sees it: a request has come in on a connection; the
 * handler writes messages onto it and ends the handling. The same on every transport
 * (channel_server.h, channel_client.h).
 *
 * Conventions:
 * 1. A connection is an argument of the handler and valid until channel_finished(). It is never
 *    null, except where it says so.
 * 2. Writes are buffered up to CHANNEL_OUTPUT_MAX bytes and never block.
 * 3. A connection in error takes no more messages, and ends when the handling ends; what was not
 *    sent by then is dropped.
 * 4. Statuses: CHANNEL_ERR_* of status.h. Nothing here notifies anybody. Everything is constant in
 *    time, apart from copying what is written.
 * 5. The process's first server or client sets the message codec up. When memory runs out in the
 *    middle of that, that one and all later ones fail with CHANNEL_ERR_NO_MEMORY; the codec makes
 *    sure beforehand that there is plenty, and when there is not, a later one may succeed. */
#ifndef PLATFORM_CHANNEL_H
#define PLATFORM_CHANNEL_H

#include <stdint.h>

#include "platform/export.h"
#include "platform/messages.h"
#include "platform/status.h"

#define CHANNEL_OUTPUT_MAX   262144u /* bytes that wait for one peer */
#define CHANNEL_SCRATCH_SIZE 8192u

typedef struct channel_connection channel_connection;

/* A request as it is handed to its handler. Valid until channel_finished(). */
typedef struct channel_command {
  uint32_t request; /* MESSAGE_*_REQUEST; the part below that belongs to it is filled */
  show_kivo_database_request show_kivo_database;
} channel_command;

/* A command handler: answers one request. It either ends the handling with channel_finished()
 * before it returns, or leaves the response pending; the connection's further requests wait
 * meanwhile.
 * channel, request  the channel's own; not read by handlers.
 * command           the request.
 * error_word        0: a request that could not be read is never handed to a handler. */
typedef void (*channel_command_handler)(void *channel, void *request,
                                        const channel_command *command,
                                        channel_connection *connection, uint32_t error_word);

/* Closes a response: with the error text, or none (null or empty) after success. */
typedef void (*channel_epilogue)(channel_connection *connection, const char *error_text);

/* What an application wants called when the handling of the request has ended. */
typedef void (*channel_continuation)(channel_connection *connection);

/* Registers the handler of a request (MESSAGE_*_REQUEST) for all connections of the process; null
 * takes it away: such a request is answered with a negative acknowledgement.
 * Returns 0; CHANNEL_ERR_INVALID_ARG for a message that is no request. */
PLATFORM_API uint32_t channel_register_handler(uint32_t request,
                                               channel_command_handler handler) PLATFORM_NOEXCEPT;

/* The definitions for the messages of this connection, null when it has none.
 * length  receives the number of messages in the set; may be null. */
PLATFORM_API const message_definitions *channel_message_definitions(
    const channel_connection *connection, uint32_t *length) PLATFORM_NOEXCEPT;

/* 0, or the status that put the connection into error. */
PLATFORM_API uint32_t channel_error(const channel_connection *connection) PLATFORM_NOEXCEPT;
/* Puts the connection into error (CHANNEL_ERR_FAILED), unless it is already. */
PLATFORM_API void channel_set_error(channel_connection *connection) PLATFORM_NOEXCEPT;

/* How many messages with content were written for the current response; the bundle's own messages,
 * which have none, do not count. */
PLATFORM_API uint32_t channel_write_count(const channel_connection *connection) PLATFORM_NOEXCEPT;

/* Writes a message; null for one without content. Returns 0; the connection's error; the marshal
 * function's status; CHANNEL_ERR_NO_ROOM when the peer has not taken what waits for it. On failure
 * nothing is written. */
PLATFORM_API uint32_t channel_marshal(channel_connection *connection, const void *message,
                                      message_marshal_fn marshal) PLATFORM_NOEXCEPT;

/* Registers the function that closes the current response, in place of an earlier one. */
PLATFORM_API void channel_set_epilogue(channel_connection *connection,
                                       channel_epilogue epilogue) PLATFORM_NOEXCEPT;
/* Runs the registered epilogue with the text; without one the connection is put into error and the
 * handling ended. */
PLATFORM_API void channel_finish_async(channel_connection *connection,
                                       const char *error_text) PLATFORM_NOEXCEPT;

/* Registers a continuation for the current response; channel_finished() calls it once, last. By
 * then the handling has ended: what the continuation registers or finishes is nobody's. */
PLATFORM_API void channel_register_continuation(
    channel_connection *connection, channel_continuation continuation) PLATFORM_NOEXCEPT;
/* 1 when there is one, else 0. */
PLATFORM_API uint32_t channel_continuation_registered(const channel_connection *connection)
    PLATFORM_NOEXCEPT;

/* Closes the response: no further message with content is taken. Returns 0 or the connection's
 * error; CHANNEL_ERR_INVALID_ARG when it was closed before. */
PLATFORM_API uint32_t channel_close_generated_response(channel_connection *connection)
    PLATFORM_NOEXCEPT;

/* Sends a negative acknowledgement with a text; a null one is empty. A failure puts the connection
 * into error. */
PLATFORM_API void channel_nack(channel_connection *connection, const char *text) PLATFORM_NOEXCEPT;

/* Ends the handling of the request; the connection may be gone afterwards. */
PLATFORM_API void channel_finished(channel_connection *connection) PLATFORM_NOEXCEPT;

/* A buffer of CHANNEL_SCRATCH_SIZE bytes for texts, shared by all connections; null without memory.
 * size  receives its size; may be null. */
PLATFORM_API char *channel_scratch(channel_connection *connection, size_t *size) PLATFORM_NOEXCEPT;

/* Traces the fields of the request that these definitions belong to, one a record, under the host
 * application's module at level 7; the caller has asked trace_enabled(). */
PLATFORM_API void channel_dump_request(const message_definitions *definitions) PLATFORM_NOEXCEPT;

#endif
