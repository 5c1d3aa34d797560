// Every message that the library traces: number and text, one row each. Call sites name the message
// (trace.h) and choose its class. Numbers and texts never change, slips included: tools that read
// traces know them. A new message takes a new number in its room's hundred.
#pragma once

#include <cstdint>

namespace kivo {

struct TraceMessage {
  uint32_t number;
  const char *text;
};

namespace msg {

// clang-format off
// Debug control
inline constexpr TraceMessage kDebugMessage            {100, "%s"};

// Database creation
inline constexpr TraceMessage kCreateBadParams         {200, "create database: bad params"};
inline constexpr TraceMessage kCreateNameTooLong       {201, "create database: db/owner name lengths exceeded max:%d"};
inline constexpr TraceMessage kRegisterNoFreeEntry     {202, "register client:%s No free entry to store registration"};
inline constexpr TraceMessage kRegisterTooManyClients  {203, "register client:%s # clients per process %d reached max %d"};
inline constexpr TraceMessage kRegisterNoMemory        {204, "register client:%s Couldn't allocate memory for attributes"};
inline constexpr TraceMessage kAccelNoIndexedRow       {205, "create_acceleration_table failed"};
inline constexpr TraceMessage kAccelNoMemory           {206, "create_acceleration_table failed, NULL accel tbl"};
inline constexpr TraceMessage kAccelSlotGuard          {207, "acceleration table create failed, table's index exceeded its size"};
inline constexpr TraceMessage kAccelSlotTaken          {208, "create_acceleration_table tbl slot = %d already taken attr_type = %d"};
inline constexpr TraceMessage kAccelFailed             {209, "create acceleration_table failed"};
inline constexpr TraceMessage kCreateFailed            {210, "create databse:%s shim_register_client failed, error:%s"};

// Acceleration table
inline constexpr TraceMessage kAccelLookup             {250, "aaa_type: %s accln tbl index: %d"};
inline constexpr TraceMessage kAccelLookupNone         {251, "get_accel_from_type failed tbl %p, type %d: none accel type"};

// Records
inline constexpr TraceMessage kCreateRecord            {300, "Inserting record with label: %x"};
inline constexpr TraceMessage kGetRecord               {301, "get record"};
inline constexpr TraceMessage kGetRecordBadLabel       {302, "get record, unique label: invalid input params"};
inline constexpr TraceMessage kGetRecordFailed         {303, "get record: get record failed, error:%s"};
inline constexpr TraceMessage kDeleteRecordFailed      {304, "Delete record: failederror:%s"};
inline constexpr TraceMessage kMatchLabelsBadParams    {305, "match labels by attr: invalid params"};
inline constexpr TraceMessage kMatchLabelsNoDb         {306, "match records by attr: invalid params"};
inline constexpr TraceMessage kMatchLabels             {307, "match records by attr:%s, attr type:%d"};
inline constexpr TraceMessage kMatchLabelsFailed       {308, "get records by attr %d: get records failed, error:%s"};
inline constexpr TraceMessage kMatchLabelBadParams     {309, "match label by attr: invalid params"};
inline constexpr TraceMessage kMatchLabelFailed        {310, "get label by attr: get record failed, error:%s, rec %p"};
inline constexpr TraceMessage kMatchLabel              {311, "match label by attr type:%d"};
inline constexpr TraceMessage kMatchRecordBadParams    {312, "match record by attr: invalid params"};
inline constexpr TraceMessage kMatchRecord             {313, "match record by attr:%s, attr type:%d"};
inline constexpr TraceMessage kMatchRecordFailed       {314, "get record by attr: get record failed, error:%s"};

// Notification
inline constexpr TraceMessage kRegisterChangeNoDb      {400, "register attr change: client info is null"};
inline constexpr TraceMessage kChangeFailed            {401, "attr_change_notification: change notification failed(%s) Failed."};
inline constexpr TraceMessage kRegisterNoAccelType     {402, "attr_change_notification: change notification failed(%s) no accel type %d"};
inline constexpr TraceMessage kRegisterUpdate          {403, "attr_change_notification: update vector data (%s) action %d, type %d, func_cb %p"};
inline constexpr TraceMessage kRegisterNew             {404, "attr_change_notification: new vector data (%s) action %d, type %d, func_cb %p"};
inline constexpr TraceMessage kOldValueTooLong         {405, "Attribute size %u greater than max allowed: %u"};
inline constexpr TraceMessage kNotifyBadParams         {406, "attr_change_notification: bad attr params.Size: %u, data: %p, client_info: %p"};
inline constexpr TraceMessage kNotifyNoAccelType       {407, "attr_change_notification: change notification failed(%s) not supported index attr %d"};
inline constexpr TraceMessage kNotify                  {408, "attr_change_notification notify type %d, size %d, data %p"};

// Attribute writes
inline constexpr TraceMessage kUpdateAttrBadParams     {500, "add or update attr: invalid params"};
inline constexpr TraceMessage kUpdateAttr              {501, "add or update attr:%s, attr type:%d"};
inline constexpr TraceMessage kGetRecordInternalFailed {502, "Add/update attr list: get record internal failed, error:%s"};
inline constexpr TraceMessage kUpdateAttrNoRecord      {503, "add or update attr:%s, attr type:%d, rec doesn't exist"};
inline constexpr TraceMessage kUpdateAttrWriteFailed   {504, "Add/update attr: add/update attr to rec failed, error:%s"};
inline constexpr TraceMessage kUpdateNotifyFailed      {505, "Add/update attr list: Notify failed, error:%s"};

// Attribute list writes
inline constexpr TraceMessage kUpdateListBadParams     {550, "Add/update attr list: invalid params"};
inline constexpr TraceMessage kUpdateList              {551, "add or update attr list:%s"};
inline constexpr TraceMessage kUpdateListNoRecord      {552, "add or update attr list:%s, rec doesn't exist"};
inline constexpr TraceMessage kUpdateListGetFailed     {553, "Add/update attr list: get attr failed, error:%s"};
inline constexpr TraceMessage kUpdateListUnsupported   {554, "Add/update attr list: Unsupported attribute: %u.Continue to next"};
inline constexpr TraceMessage kUpdateListWriteFailed   {555, "Add/update attr list: add attr to rec failed, error:%s"};
inline constexpr TraceMessage kCleanListBadParams      {560, "Clean/Add attr list: invalid params"};
inline constexpr TraceMessage kCleanList               {561, "clean and add attr list:%s"};
inline constexpr TraceMessage kCleanListFetchFailed    {562, "Clean/Add attr list: get record internal failed, error:%s"};
inline constexpr TraceMessage kCleanListNoRecord       {563, "clean and add attr list:%s, rec doesn't exist"};
inline constexpr TraceMessage kCleanListGetFailed      {564, "Clean/Add attr list: get attr failed, error:%s"};
inline constexpr TraceMessage kCleanListUnsupported    {565, "Clean/Add attr list: Unsupported attribute: %u.Continue to next"};
inline constexpr TraceMessage kCleanListWriteFailed    {566, "Clean/Add attr list: add attr to rec failed, error:%s"};
inline constexpr TraceMessage kCleanListNotifyFailed   {567, "Clean/Add attr list: Notify failed, error:%s"};

// Adding attributes
inline constexpr TraceMessage kAddToRecordBadParams    {520, "add attr to record: invalid params"};
inline constexpr TraceMessage kAddToRecordFailed       {521, "kivo_add_attr_to_record: Add attr failed, error:%s"};
inline constexpr TraceMessage kAddToRecordNotifyFailed {522, "kivo_add_attr_to_record: Notify failed, error:%s"};
inline constexpr TraceMessage kAddAttrBadParams        {523, "add attr to label: invalid params"};
inline constexpr TraceMessage kAddAttrNoDb             {524, "Add attr list: invlaid params"};
inline constexpr TraceMessage kAddAttr                 {525, "add attr list:%s"};
inline constexpr TraceMessage kAddAttrFetchFailed      {526, "Add attr list: get record internal failed, error:%s"};
inline constexpr TraceMessage kAddAttrNoRecord         {527, "add attr list:%s rec doesn't exist"};
inline constexpr TraceMessage kAddAttrFailed           {528, "kivo_add_attr: Add failed, error:%s"};
inline constexpr TraceMessage kAddListBadParams        {530, "add attr list: invalid params"};
inline constexpr TraceMessage kAddListNoDb             {531, "Add attr list: invalid params"};
inline constexpr TraceMessage kAddList                 {532, "Add attr list:%s"};
inline constexpr TraceMessage kAddListNoRecord         {533, "Add attr list:%s rec doesn't exist"};
inline constexpr TraceMessage kAddListGetFailed        {534, "Add attr list: get attr failed, error:%s"};
inline constexpr TraceMessage kAddListWriteFailed      {535, "Add attr list: add attr to rec failed, error:%s"};
inline constexpr TraceMessage kAddListNotifyFailed     {536, "Add attr list: failed, error:%s"};
inline constexpr TraceMessage kUpdateInRecordBadParams {540, "add or update attr to rec: invalid params"};
inline constexpr TraceMessage kUpdateInRecordFailed    {541, "add or update attr to rec: failed, error:%s"};
inline constexpr TraceMessage kUpdateInRecordNotify    {542, "Add/update attr to rec: Notify failed, error:%s"};

// Removing attributes
inline constexpr TraceMessage kRemoveBadParams         {570, "remove attrs: invalid params"};
inline constexpr TraceMessage kRemoveByType            {571, "remove attrs:"};
inline constexpr TraceMessage kRemoveGetFailed         {572, "Remove attr by type: Get attr from rec failed, error:%s"};
inline constexpr TraceMessage kRemoveByTypeNotify      {573, "Remove attr by type: Notify failed, error:%s"};
inline constexpr TraceMessage kRemoveByTypeFailed      {574, "Remove attr by type: Remove failed, error:%s"};
inline constexpr TraceMessage kRemove                  {575, "remove attrs:%s"};
inline constexpr TraceMessage kRemoveNoRecord          {576, "remove attrs:%s rec doesn't exist"};
inline constexpr TraceMessage kRemoveTypesFailed       {577, "Remove attrs by type: Remove attr failed, error:%s"};
inline constexpr TraceMessage kRemoveBadRecord         {578, "remove attrs: invalid rec"};
inline constexpr TraceMessage kRemoveByValueFailed     {579, "Remove attr by type/val: Remove attr failed, error:%s"};
inline constexpr TraceMessage kRemoveByValueNotify     {580, "Remove attrs from rec by type and val: Notify failed, error:%s"};

// Label sets
inline constexpr TraceMessage kHashTableFailed         {600, "Failed to initialize kivo index list hashtable"};
inline constexpr TraceMessage kHashAddFailed           {601, "Failed to add index %u to kivo index list hashtable"};
inline constexpr TraceMessage kHashItems               {602, "Hash items after cleanup =%d"};

// Attribute retrieval
inline constexpr TraceMessage kGetAttrBadParams        {700, "get attr: invalid params"};
inline constexpr TraceMessage kGetAttr                 {701, ">>>>> get attr: for attr_type %s"};
inline constexpr TraceMessage kGetAttrFailed           {702, "get attr: Could not get attr from db - rc %d"};
inline constexpr TraceMessage kGetAttrNoRecord         {703, "get attrs: rec doesn't exist attr_type %d"};

// Multi-attribute queries
inline constexpr TraceMessage kQueryStart              {620, "start_multi_attr_query"};
inline constexpr TraceMessage kQueryStartBadParams     {621, "start_multi_attr_query Invalid params"};
inline constexpr TraceMessage kQueryAdd                {622, "kivo_add_attr_to_query"};
inline constexpr TraceMessage kQueryAddNoContext       {623, "add_attr_to_multi_query: Null ctx param"};
inline constexpr TraceMessage kQueryAddBadParams       {624, "add_attr_to_multi_query: Invalid params"};
inline constexpr TraceMessage kQueryAddNoMatches       {625, "add_attr_to_multi_query: MAQI_NO_MATCHES"};
inline constexpr TraceMessage kIndexedBadParams        {626, "check_attr_indxed_int: invalid params"};
inline constexpr TraceMessage kQueryAddFailed          {627, "add_attr_to_multi_query failed: type %d indexed %d"};
inline constexpr TraceMessage kIndexedLookupFailed     {628, "check_attr_indxed_int: Error in accl_tbl type %d, error:%s"};
inline constexpr TraceMessage kIndexedNoEntry          {629, "check_attr_indxed_int: not accel type %d, "};
inline constexpr TraceMessage kQueryListFailed         {630, "add_attr_to_multi_query list create failed: type %d indexed %d"};
inline constexpr TraceMessage kQueryGetFailed          {631, "add_attr_to_multi_query get failed: type %d indexed %d"};
inline constexpr TraceMessage kQueryNoLabels           {632, "add_attr_to_multi_query index attr no matches: type %d indexed %d"};
inline constexpr TraceMessage kQueryIntersectFailed    {633, "add_attr_to_multi_query lists intersect failed: type %d indexed %d"};
inline constexpr TraceMessage kQueryNoIntersection     {634, "add_attr_to_multi_query index attr no intersect: type %d indexed %d"};
inline constexpr TraceMessage kQuerySizeFailed         {635, "add_attr_to_multi_query lists size failed: type %d indexed %d"};
inline constexpr TraceMessage kQueryUnindexedFailed    {636, "add_attr_to_multi_query:  unindexed attrs failed"};
inline constexpr TraceMessage kQueryUnindexedNoMatch   {637, "add_attr_to_multi_query unindex attr no match: type %d indexed %d"};
inline constexpr TraceMessage kQueryUnindexedStored    {638, "add_attr_to_multi_query unindex attr stored : type %d indexed %d"};
inline constexpr TraceMessage kQueryTooManyUnindexed   {639, "add_attr_to_multi_query: Too many unindexed attrs"};
inline constexpr TraceMessage kCandidatesBadParams     {640, "match_attr_to_candidates_int: invalid params"};
inline constexpr TraceMessage kQueryGet                {641, "kivo_get_matches_for_query"};
inline constexpr TraceMessage kQueryGetNoMatches       {642, "get_matches_to_multi_query: KIVO_MAQI_NO_MATCHES"};
inline constexpr TraceMessage kQueryManyMatches        {643, "get_matches_to_multi_query: TOO MANY MATCHES %d"};

// Session matching
inline constexpr TraceMessage kMatchSessionsBadParams  {650, "match_sessions_from_list: invalid params"};
inline constexpr TraceMessage kMatchSessions           {651, "match sessions from list :%s"};
inline constexpr TraceMessage kMatchSessionsGetFailed  {652, "match_sessions_from_list: get attr failed, error:%s"};
inline constexpr TraceMessage kMatchSessionsAccel      {653, "match_sessions_from_list: accel lookup error, error:%s"};
inline constexpr TraceMessage kMatchSessionsNoEntry    {654, "match_sessions_from_list: type %d not accel type"};
inline constexpr TraceMessage kMatchSessionsLabels     {655, "match_sessions_from_list: get labels by attr failed, error:%s"};
inline constexpr TraceMessage kMatchSessionsNoLabels   {656, "match_sessions_from_list: get labels by attr no match, type: %d"};
inline constexpr TraceMessage kMatchSessionsIntersect  {657, "match_sessions_from_list: Intersection failed, error:%s"};
inline constexpr TraceMessage kMatchSessionsEmpty      {658, "match_sessions_from_list: Intersection is 0, error:%s"};
inline constexpr TraceMessage kMatchSessionsSize       {659, "match_sessions_from_list: Fail in get list size, error:%s"};
inline constexpr TraceMessage kMatchSessionsNone       {660, "match_sessions_from_list: No matches db_handle:[%p]"};
inline constexpr TraceMessage kSessionListBadParams    {670, "get session list: invalid params"};
inline constexpr TraceMessage kSessionList             {671, "get session list"};
inline constexpr TraceMessage kSessionListFailed       {672, "get session list: list create failed"};

// Display
inline constexpr TraceMessage kShowMatchAudit          {800, "\n\nMatching record information with Audit Session ID %s:\n"};
inline constexpr TraceMessage kShowMatchMac            {801, "\n\nMatching record information with MAC Address %s:\n"};
inline constexpr TraceMessage kShowMatchIpv4           {802, "\n\nMatching record information with IPV4 Address %i:"};
inline constexpr TraceMessage kShowListFailed          {803, "Kivo index list create failed, Error: %s"};
inline constexpr TraceMessage kShowAccelFailed         {804, "Get accel for attr failed,Error: %s"};
inline constexpr TraceMessage kShowNotIndexedType      {805, "show database: type %d not a indexed type"};
inline constexpr TraceMessage kShowInterfaceNoMemory   {806, "Memory allocation for interface field failed"};
inline constexpr TraceMessage kShowTextNoMemory        {807, "Memory allocation for username failed"};

// Shadow store; these go to the host application's module
inline constexpr TraceMessage kShadowClass             {900, "%s is %s external identity"};
inline constexpr TraceMessage kShadowDecodeFailed      {901, "Failed to decode the %s attribute."};
inline constexpr TraceMessage kShadowDecoded           {902, "Decoded subtype for %s attribute is %d"};
inline constexpr TraceMessage kShadowStoreFailed       {903, "Failed to store the %s attribute "};
inline constexpr TraceMessage kShadowWrite             {904, "Add/Update %s attr of size: %u for label 0x%x"};
inline constexpr TraceMessage kShadowNoEntryMemory     {905, "Unable to allocate the attr entry for %s"};
inline constexpr TraceMessage kShadowNoValueMemory     {906, "Unable to allocate the protocol%s value entry type %d for length %d"};
inline constexpr TraceMessage kShadowAdding            {907, "Adding %s subtype %d in shadow db"};
inline constexpr TraceMessage kShadowUpdating          {908, "Updating %s subtype %d in shadow db"};
inline constexpr TraceMessage kShadowReplacing         {909, "%s subtype %d already present. updating value."};
inline constexpr TraceMessage kShadowInvalidRecord     {910, "Invalid shadow record."};
inline constexpr TraceMessage kShadowNotPresent        {911, "Unable to remove attr. %s subtype %d is not present."};
inline constexpr TraceMessage kShadowRemoving          {912, "%s Subtype %d is present. Removing attr"};
inline constexpr TraceMessage kShadowNoRecordMemory    {913, "%u: Unable to alloc shadow entry"};
inline constexpr TraceMessage kShadowNewRecord         {914, "%u: Allocating new SHDB record entry"};
inline constexpr TraceMessage kShadowCleanupNull       {915, "Invalid entry to cleanup"};
inline constexpr TraceMessage kShadowCleanupArgument   {916, "Invalid argument for cleanup."};
inline constexpr TraceMessage kShadowFreed             {917, "%u: Free'd the shadow record"};
inline constexpr TraceMessage kShadowBadIndex          {918, "Attr Index %d is invalid."};
inline constexpr TraceMessage kShadowRecordIsInvalid   {919, "Record is invalid."};
inline constexpr TraceMessage kShadowNoIdentities      {920, "No external identities present in DB."};
inline constexpr TraceMessage kShadowBadList           {921, "%u: Invalid identity list passed to get session identities"};
inline constexpr TraceMessage kShadowNoEntries         {922, "No attr entries for index %d"};
inline constexpr TraceMessage kShadowCopyFailed        {923, "%s: Failed to add aaa attribute"};
inline constexpr TraceMessage kShadowCopied            {924, "%u: Added %s atribute to the list"};
inline constexpr TraceMessage kShadowShowBadParams     {925, "show attr: invalid params"};
inline constexpr TraceMessage kShadowShowNoRecord      {926, "Get record failed"};
inline constexpr TraceMessage kShadowShowNoShadow      {927, "Failed to get the shadow rec"};
// clang-format on

}  // namespace msg
}  // namespace kivo
