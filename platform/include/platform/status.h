/* The status codes of the process.
 *
 * Conventions:
 * 1. A status is an unsigned 32-bit word; 0 is success.
 * 2. The upper 16 bits name the owner: 0xa001 the record store, 0xa002 the attribute service,
 *    0xa003 the KIVO library, 0xa004 the message set, 0xa005 the request channel. The lower 16 bits
 *    tell what happened; one kind of failure has the same lower half for every owner.
 * 3. A few results are plain numbers below 256; they are older than the scheme and stay as they
 *    are. error_text() of error_text.h turns any of them into a text. */
#ifndef PLATFORM_STATUS_H
#define PLATFORM_STATUS_H

#include <stdint.h>

#define PLATFORM_OK UINT32_C(0)

/* The record store, attrdb.h. */
#define ATTRDB_ERR_NO_MEMORY    UINT32_C(0xa0010400)
#define ATTRDB_ERR_INVALID_ARG  UINT32_C(0xa0010600) /* null pointer, size or type 0, label 0 */
#define ATTRDB_ERR_LABEL_IN_USE UINT32_C(0xa0010800)
#define ATTRDB_ERR_NOT_READY    UINT32_C(0xa0010a00) /* attrdb_init() has not run, or failed */
#define ATTRDB_ERR_ADOPTED      UINT32_C(0xa0010c00) /* the context belongs to a record already */
#define ATTRDB_ERR_NOT_FOUND    UINT32_C(0xa0011200) /* no record with that label */

/* The attribute service, aaa.h and auth_mgr_idc.h. */
#define AAA_ERR_UNSUPPORTED_ATTR UINT32_C(2) /* attribute type outside the dictionary */
#define AAA_ERR_NO_MEMORY        UINT32_C(0xa0020400)
#define AAA_ERR_INVALID_ARG      UINT32_C(0xa0020600)
#define AAA_ERR_NO_ROOM          UINT32_C(0xa0020800) /* value above 65,535 bytes; too many lists */
#define AAA_ERR_STALE_LIST       UINT32_C(0xa0020a00) /* the list was freed, or never existed */
#define AAA_ERR_NOT_FOUND        UINT32_C(0xa0021200) /* the value to remove is not there */

/* The message set, messages.h. */
#define MESSAGE_ERR_NO_MEMORY   UINT32_C(0xa0040400)
#define MESSAGE_ERR_INVALID_ARG UINT32_C(0xa0040600)
#define MESSAGE_ERR_NO_ROOM     UINT32_C(0xa0040800)

/* The request channel, channel.h. */
#define CHANNEL_ERR_FAILED      UINT32_C(0xa0050200) /* its handler gave the connection up */
#define CHANNEL_ERR_NO_MEMORY   UINT32_C(0xa0050400)
#define CHANNEL_ERR_INVALID_ARG UINT32_C(0xa0050600)
#define CHANNEL_ERR_NO_ROOM     UINT32_C(0xa0050800) /* the peer does not take what waits for it */
#define CHANNEL_ERR_CLOSED      UINT32_C(0xa0051400) /* the peer has gone */
#define CHANNEL_ERR_FRAME       UINT32_C(0xa0051600) /* what came in is no message of the set */
#define CHANNEL_ERR_TIMEOUT     UINT32_C(0xa0051800)
#define CHANNEL_ERR_SYSTEM      UINT32_C(0xa0051a00) /* errno tells why */

/* The KIVO library. */
#define KIVO_ERR_FAILED        UINT32_C(0xa0030200) /* the operation could not be carried out */
#define KIVO_ERR_NO_MEMORY     UINT32_C(0xa0030400)
#define KIVO_ERR_INVALID_ARG   UINT32_C(0xa0030600)
#define KIVO_ERR_NO_ROOM       UINT32_C(0xa0030800) /* no free client entry */
#define KIVO_ERR_NO_CURSOR     UINT32_C(0xa0030e00) /* no cursor over an attribute list */
#define KIVO_ERR_NOT_FOUND     UINT32_C(0xa0031200) /* a session without a shadow record */
#define KIVO_ERR_INVALID_VALUE UINT32_C(22)         /* old value too long; no shadow record */

#endif
