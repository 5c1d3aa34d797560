/* The show-database request service: answers show_kivo_database_request on the host's request
 * channel with a bundle of messages, committed, or aborted and refused with a reason.
 *
 * Conventions:
 * 1. The host registers the handler:
 *      channel_register_handler(MESSAGE_SHOW_KIVO_DATABASE_REQUEST,
 *                               dcx_show_kivo_database_request_command_handler);
 * 2. Requests are handled one at a time: one error text serves the process.
 * 3. Nothing here notifies. Cost: a reply has a bound that does not grow with the sessions. */
#ifndef KIVO_SHOW_REQUEST_H
#define KIVO_SHOW_REQUEST_H

#include "kivo/export.h"
#include "platform/channel.h"

/* Bytes of the error text, its NUL included. */
#define KIVO_REQUEST_ERROR_SIZE 405u

/* What a request's callback returns. */
#define KIVO_RESPONSE_SYNCHRONOUS  1
#define KIVO_RESPONSE_ASYNCHRONOUS 2

/* Gathers the answer to a request and writes it onto the connection: the database, then the one
 * session that was asked for or the list of attribute types.
 * connection  that of the request; null is traced, and nothing else happens.
 * command     the request; when it is null the error text says so.
 * error_text  receives the reason of a failure, cut to size - 1 characters and NUL-terminated; left
 *             alone otherwise: the caller empties it first. Null as for connection.
 * size        bytes of error_text, at least 1.
 * Returns KIVO_RESPONSE_SYNCHRONOUS. */
KIVO_API int zelui_show_kivo_database_cb(channel_connection *connection,
                                         const channel_command *command, char *error_text,
                                         uint32_t size) KIVO_NOEXCEPT;

/* Handles a request: opens the bundle, has the callback write the answer, closes the bundle.
 * channel, request  not read.
 * command           the request, handed to the callback as it is.
 * connection        that of the request.
 * error_word        0, else the process stops.
 * A callback that returns neither of the two results, or registers a continuation and then returns
 * KIVO_RESPONSE_ASYNCHRONOUS, stops the process as well. */
KIVO_API void dcx_show_kivo_database_request_command_handler(void *channel, void *request,
                                                             const channel_command *command,
                                                             channel_connection *connection,
                                                             uint32_t error_word) KIVO_NOEXCEPT;

/* Closes the bundle: commits it, or with an error text aborts it and refuses the request with that
 * text. The handler registers it with the channel, which runs it; after an asynchronous response
 * the application has channel_finish_async() run it, before the next request.
 * connection  that of the request; null stops the process.
 * error_text  null or empty after success. */
KIVO_API void dcx_show_kivo_database_request_epilogue(channel_connection *connection,
                                                      const char *error_text) KIVO_NOEXCEPT;

#endif
