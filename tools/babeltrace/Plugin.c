#include "tools/babeltrace/Plugin.h"

BT_PLUGIN_MODULE()
BT_PLUGIN(nima);
BT_PLUGIN_DESCRIPTION("What the nima diagnostics library leaves on a device");
BT_PLUGIN_VERSION(NIMA_VERSION_MAJOR, NIMA_VERSION_MINOR, NIMA_VERSION_PATCH, NULL);

BT_PLUGIN_SOURCE_COMPONENT_CLASS(folder, NimaIteratorNext);
BT_PLUGIN_SOURCE_COMPONENT_CLASS_DESCRIPTION(
    folder, "Reads a folder that came back from a device, or an archive of it");
BT_PLUGIN_SOURCE_COMPONENT_CLASS_HELP(
    folder,
    "Parameters:\n"
    "  inputs          Array of strings: folders, archives, files (required)\n"
    "  names           String: dictionary that turns numbers into words\n"
    "  utc-offset      Signed integer: seconds by which the device's local time is ahead of UTC\n"
    "  force-absolute  Boolean: takes the times of a folder without a date for times since 1970");
BT_PLUGIN_SOURCE_COMPONENT_CLASS_INITIALIZE_METHOD(folder, NimaFolderInitialize);
BT_PLUGIN_SOURCE_COMPONENT_CLASS_FINALIZE_METHOD(folder, NimaFolderFinalize);
BT_PLUGIN_SOURCE_COMPONENT_CLASS_QUERY_METHOD(folder, NimaFolderQuery);
BT_PLUGIN_SOURCE_COMPONENT_CLASS_MESSAGE_ITERATOR_CLASS_INITIALIZE_METHOD(folder, NimaIteratorInitialize);
BT_PLUGIN_SOURCE_COMPONENT_CLASS_MESSAGE_ITERATOR_CLASS_FINALIZE_METHOD(folder, NimaIteratorFinalize);
BT_PLUGIN_SOURCE_COMPONENT_CLASS_MESSAGE_ITERATOR_CLASS_SEEK_BEGINNING_METHODS(folder,
                                                                               NimaIteratorSeekBeginning,
                                                                               NimaIteratorCanSeekBeginning);
