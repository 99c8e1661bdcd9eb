#pragma once

/* What babeltrace2 calls. Nothing is thrown out of these. */

#include <babeltrace2/babeltrace.h>

#ifdef __cplusplus
extern "C" {
#endif

bt_component_class_initialize_method_status NimaFolderInitialize(
    bt_self_component_source* self, bt_self_component_source_configuration* configuration,
    const bt_value* parameters, void* data);
void NimaFolderFinalize(bt_self_component_source* self);
bt_component_class_query_method_status NimaFolderQuery(bt_self_component_class_source* self,
                                                       bt_private_query_executor* executor,
                                                       const char* object, const bt_value* parameters,
                                                       void* data, const bt_value** result);

bt_message_iterator_class_initialize_method_status NimaIteratorInitialize(
    bt_self_message_iterator* self, bt_self_message_iterator_configuration* configuration,
    bt_self_component_port_output* port);
void NimaIteratorFinalize(bt_self_message_iterator* self);
bt_message_iterator_class_next_method_status NimaIteratorNext(bt_self_message_iterator* self,
                                                              bt_message_array_const messages,
                                                              uint64_t capacity, uint64_t* count);
bt_message_iterator_class_can_seek_beginning_method_status NimaIteratorCanSeekBeginning(
    bt_self_message_iterator* self, bt_bool* canSeek);
bt_message_iterator_class_seek_beginning_method_status NimaIteratorSeekBeginning(
    bt_self_message_iterator* self);

#ifdef __cplusplus
}
#endif
