#pragma once

class QPainter;
class QRect;

/// What signs over a picture stand on, so that they are readable on any ground; leaves the painter smooth.
void drawPlate(QPainter & painter, const QRect & place);
