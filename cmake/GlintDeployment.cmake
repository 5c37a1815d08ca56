# Deployment constants. Each is a cache variable compiled into the programs
# and can be overridden at run time by the environment variable GLINT_<NAME>
# (see glint::deployment() in the generated header glintdeployment.h).
set(GLINT_BACKEND_URL "http://127.0.0.1:8490/vc/v1" CACHE STRING "Lens backend base URL")
set(GLINT_TWITCH_CLIENT_ID "" CACHE STRING "Twitch application client id")
set(GLINT_TWITCH_OAUTH_URL "https://id.twitch.tv/oauth2" CACHE STRING "Twitch OAuth base URL")
set(GLINT_TWITCH_HELIX_URL "https://api.twitch.tv/helix" CACHE STRING "Twitch Helix base URL")
set(GLINT_TWITCH_PUBSUB_URL "wss://pubsub-edge.twitch.tv" CACHE STRING "Twitch PubSub address")
set(GLINT_TWITCH_EVENTSUB_URL "wss://eventsub.wss.twitch.tv/ws" CACHE STRING "Twitch EventSub address")
set(GLINT_CRASH_URL "http://127.0.0.1:8490/crash" CACHE STRING "Crash report upload address")
set(GLINT_CRASH_APP_ID "glint-camera" CACHE STRING "Crash service application id")
set(GLINT_ANALYTICS_URL "http://127.0.0.1:8490/vc/v1/analytics" CACHE STRING "Analytics endpoint")
set(GLINT_CREATOR_HOST "glint.camera" CACHE STRING "Host of lens creator pages and deep links")
set(GLINT_UPDATE_PAGE_URL "http://127.0.0.1:8490/download" CACHE STRING "Fallback update page")

configure_file(${CMAKE_SOURCE_DIR}/cmake/glintdeployment.h.in
               ${CMAKE_BINARY_DIR}/generated/glintdeployment.h @ONLY)
add_library(glint_deployment INTERFACE)
target_include_directories(glint_deployment INTERFACE ${CMAKE_BINARY_DIR}/generated)
