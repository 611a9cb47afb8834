// Where the eye is, and how it is moved.
#pragma once

#include "Engine/SceneFile/ModelView.h"

namespace oxbeam {

struct Eye {
    View view;
    float fov = 40.0f;        // vertical, degrees
    R3 pivot;                 // what it turns about and comes nearer to
    R3 up{0.0f, 1.0f, 0.0f};  // of the world; of unit length

    // Turns about what it looks at; its up is that of the picture.
    static Eye of(const View& view, float fov);

    R3 forward() const { return Normalize(view.lookAt - view.position); }
    R3 right() const { return Normalize(Cross(forward(), view.lookUp)); }
    R3 upwards() const { return Cross(right(), forward()); }
    float distance() const { return Length(pivot - view.position); }

    // About the pivot: the angles, in radians, by which what is seen turns to the right and upwards.
    void orbit(float toRight, float upwards);
    // The same about the eye itself.
    void turn(float toRight, float upwards);
    // What is at the pivot's distance moves by these shares of the picture's height.
    void pan(float toRight, float downwards);
    // The distance to the pivot becomes that many times as large.
    void dolly(float factor);
    // In the eye's own directions, in units of the world.
    void fly(const R3& rightUpForward);
    // All of a sphere around the bounds is in the picture; the direction stays.
    void frame(const Bounds& bounds, const ImageSize& image);
    // From the front, above, ...: as `--view` has it.
    void lookFrom(const std::string& viewName, const Bounds& bounds, const ImageSize& image);
    // The point that is seen at a place in the picture, from (-1, -1) at its left top to (1, 1), at a depth along the way
    // that the eye looks; for a camera that projects onto a plane.
    R3 pointAt(const R2& place, float depth, const ImageSize& image) const;

private:
    void rotate(const R3& center, float toRight, float upwards);
    void move(const R3& by);
};

// Where a point is in the picture, as `pointAt` has places, with its depth as third; behind the eye the depth is negative.
R3 placeOf(const View& view, float fov, const ImageSize& image, const R3& point);

}  // namespace oxbeam
