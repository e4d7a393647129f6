#include "foundation/Logging.h"

Q_LOGGING_CATEGORY(lcCorvel, "works.tessel.corvel")
