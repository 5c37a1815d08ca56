#include "basestore.h"
