#include "served.h"

const struct served_file served_files[served_file_count] = {
    {"/dev/nvram", "nvram", "NVRAM"},
    {"/dev/nvrambak", "nvrambak", "NVRAMBAK"},
    {"/etc/igd/default-conf.xml", "default-conf.xml", NULL},
    {"/tmp/tobixopen", "tobixopen", NULL},
    {"/tmp/temp_config_for_download", "temp_config_for_download", NULL},
};
