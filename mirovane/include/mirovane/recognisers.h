#pragma once

/**
 * The recogniser interface: nine abstract classes behind which any vendor's library fits. Each class
 * with a factory comes as a shared library of its own, named after it. The order of the virtual
 * operations is part of the interface; the reserved ones hold the places of operations that the service
 * never calls. The last argument of most operations is a library's own switch and always false here.
 */
#include "mirovane/bodydetectionssd.h"
#include "mirovane/bodyposeclassify.h"
#include "mirovane/faceattrdetection.h"
#include "mirovane/facedetectionmtcnn.h"
#include "mirovane/faceemotionclassify.h"
#include "mirovane/faceiddetection.h"
#include "mirovane/handupclassify.h"
#include "mirovane/poseclassifycmu.h"
#include "mirovane/posedetectioncmu.h"
