// Prepares node graphs for the runtime.
#include "../pattern/2d/bakedimagedata.h"
#include "velto/record.h"

VELTO_TRANSLATION_UNIT(0);
VELTO_DEPENDS_ON_LABEL("databaseregister");

VELTO_PUBLISH_DATA_TYPE(velto::SearchPathsType);
VELTO_PUBLISH_DATA_TYPE(velto::pattern::twod::BakedImageData);
