#include "hinttable.h"

#include <QHash>

namespace VCam {

namespace {

const QHash<QString, QString> &table()
{
    static const QHash<QString, QString> hints = {
        {"lens_hint_open_your_mouth", "OPEN YOUR MOUTH"},
        {"lens_hint_raise_your_eyebrows", "RAISE YOUR EYEBROWS"},
        {"lens_hint_kiss", "KISS"},
        {"lens_hint_blow_a_kiss", "BLOW A KISS"},
        {"lens_hint_raise_eyebrows_or_open_mouth", "RAISE YOUR EYEBROWS\nOR\nOPEN YOUR MOUTH"},
        {"lens_hint_face_swap", "FACE SWAP"},
        {"lens_hint_blink", "BLINK"},
        {"lens_hint_smile", "SMILE"},
        {"lens_hint_try_friend", "TRY IT WITH A FRIEND"},
        {"lens_hint_raise_your_eyebrows_again", "RAISE YOUR EYEBROWS AGAIN"},
        {"lens_hint_open_your_mouth_again", "OPEN YOUR MOUTH AGAIN"},
        {"lens_hint_kiss_again", "KISS AGAIN"},
        {"lens_hint_smile_again", "SMILE AGAIN"},
        {"lens_hint_now_raise_your_eyebrows", "NOW RAISE YOUR EYEBROWS"},
        {"lens_hint_now_kiss", "NOW KISS"},
        {"lens_hint_now_smile", "NOW SMILE"},
        {"lens_hint_now_open_your_mouth", "NOW OPEN YOUR MOUTH"},
        {"lens_hint_keep_raising_your_eyebrows", "KEEP RAISING YOUR EYEBROWS"},
        {"lens_hint_draw_with_your_finger", "DRAW WITH YOUR FINGER"},
        {"lens_hint_raise_your_eyebrows_to_start_the_game", "RAISE YOUR EYEBROWS\nTO\nSTART THE GAME"},
        {"lens_hint_tap", "TAP OR USE HOTKEY!"},
        {"lens_hint_look_up", "LOOK UP"},
        {"lens_hint_look_around", "LOOK AROUND"},
        {"lens_hint_do_not_smile", "DO NOT SMILE"},
        {"lens_hint_do_not_try_with_a_friend", "DO NOT TRY WITH A FRIEND"},
        {"lens_hint_raise_your_eyebrows_voice_changer", "RAISE YOUR EYEBROWS"},
        {"lens_hint_open_your_mouth_voice_changer", "OPEN YOUR MOUTH"},
        {"lens_hint_smile_voice_changer", "SMILE"},
        {"lens_hint_blow_a_kiss_voice_changer", "BLOW A KISS"},
        {"lens_hint_look_down", "LOOK DOWN"},
        {"lens_hint_tap_surface_to_place", "TAP SURFACE TO PLACE"},
        {"lens_hint_find_face", "FIND FACE"},
        {"lens_hint_tap_a_surface", "TAP A SURFACE"},
        {"lens_hint_tap_ground", "TAP THE GROUND"},
        {"lens_hint_tap_ground_to_place", "TAP GROUND TO PLACE"},
        {"lens_hint_come_closer", "COME CLOSER"},
        {"lens_hint_nod_your_head", "NOD YOUR HEAD"},
        {"lens_hint_walk_through_the_door", "WALK THROUGH THE DOOR"},
        {"lens_hint_turn_around", "TURN AROUND"},
        {"lens_hint_look_left", "LOOK LEFT"},
        {"lens_hint_look_right", "LOOK RIGHT"},
        {"lens_hint_show_your_hand", "SHOW YOUR HAND"},
        {"lens_hint_aim_camera_at_the_sky", "AIM CAMERA AT THE SKY"},
        {"lens_hint_tilt_your_head", "TILT YOUR HEAD"},
        {"lens_hint_move_your_head", "MOVE YOUR HEAD"},
        {"lens_hint_send_to_friends", "SEND TO FRIENDS"},
        {"lens_hint_find_marker", "FIND MARKER"},
        {"lens_hint_find_glintcode", "FIND GLINTCODE"},
        {"lens_hint_find_image", "FIND IMAGE"},
        {"lens_hint_try_with_your_cat", "TRY WITH YOUR CAT"},
    };
    return hints;
}

} // namespace

QString HintTable::text(const QString &hintId)
{
    return table().value(hintId);
}

bool HintTable::contains(const QString &hintId)
{
    return table().contains(hintId);
}

int HintTable::size()
{
    return table().size();
}

} // namespace VCam
