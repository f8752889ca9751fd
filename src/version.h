// Version texts of the library and of its core engine, as hosts and logs see them.
#pragma once

#define TAVRIN_KELD_VERSION "Tavrin KELD Ver.1.3.2 For Brumel 2025-08-11 Official"
#define TAV_SR2_ENGINE_VERSION "Tavrin Super-Resolution Ver.2.0.1 MC2.5.44_odm_p17 2025/08/11"
