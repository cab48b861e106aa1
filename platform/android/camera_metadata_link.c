/* A stub to link with: the symbols of the device's libcamera_metadata that the library calls. */

void clone_camera_metadata(void);
void free_camera_metadata(void);

void clone_camera_metadata(void) {}

void free_camera_metadata(void) {}
