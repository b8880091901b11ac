#include "multilog/MultiLogFile.h"
