<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>ConnectPage</name>
    <message>
        <source>Please enter the connection code to connect the screen</source>
        <translation>Please enter the connection code to connect the screen</translation>
    </message>
    <message>
        <source>The connection code is shown on the large screen</source>
        <translation>The connection code is shown on the large screen</translation>
    </message>
    <message>
        <source>Start Connect</source>
        <translation>Connect</translation>
    </message>
    <message>
        <source>Mirror Screen</source>
        <translation>Mirror</translation>
    </message>
    <message>
        <source>Expand Screen</source>
        <translation>Extend</translation>
    </message>
    <message>
        <source>Window Screen</source>
        <translation>Window</translation>
    </message>
    <message>
        <source>File Screen</source>
        <translation>File</translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation>Reverse Screen</translation>
    </message>
    <message>
        <source>disconnect</source>
        <translation>Disconnect</translation>
    </message>
</context>
<context>
    <name>DetailsExpansionWindow</name>
    <message>
        <source>Details</source>
        <translation>Details</translation>
    </message>
    <message>
        <source>Check that the PC and the screen are on the same network, then try again. If it keeps failing, send this code to your administrator.</source>
        <translation>Check that the PC and the screen are on the same network, then try again. If it keeps failing, send this code to your administrator.</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>DynamicWindow</name>
    <message>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>ExceptionCallBack</name>
    <message>
        <source>Failed to turn on reverse control,</source>
        <translation>Could not turn on remote control: </translation>
    </message>
    <message>
        <source> is controlling the screen</source>
        <translation> is controlling the screen</translation>
    </message>
    <message>
        <source>Failed to turn on reverse control, the screen only for displaying</source>
        <translation>Could not turn on remote control: this screen is for display only</translation>
    </message>
</context>
<context>
    <name>FileScreenPage</name>
    <message>
        <source>FileScreen.</source>
        <translation>Showing file.</translation>
    </message>
    <message>
        <source>Stop Screen</source>
        <translation>Stop Casting</translation>
    </message>
</context>
<context>
    <name>OrvixUpgrade</name>
    <message>
        <source>Cast your screen to a display panel</source>
        <translation>Cast your screen to a display panel</translation>
    </message>
    <message>
        <source>Screen Mirroring</source>
        <translation>Screen Mirroring</translation>
    </message>
    <message>
        <source>Connect Code</source>
        <translation>Connection code</translation>
    </message>
    <message>
        <source>Virtual display in use</source>
        <translation>Virtual display in use</translation>
    </message>
</context>
<context>
    <name>PopupWindow</name>
    <message>
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
</context>
<context>
    <name>ScreenPage</name>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation>Enter the connection code to cast your screen</translation>
    </message>
    <message>
        <source>Start Screen</source>
        <translation>Start Casting</translation>
    </message>
    <message>
        <source>Stop Screen</source>
        <translation>Stop Casting</translation>
    </message>
</context>
<context>
    <name>SharePage</name>
    <message>
        <source>Please enter the connection code to show the screen here</source>
        <translation>Enter the connection code to show that screen here</translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation>Reverse Screen</translation>
    </message>
</context>
<context>
    <name>TipWindows</name>
    <message>
        <source>ShowDetails</source>
        <translation>Show details</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::BYOMSetting</name>
    <message>
        <source>BYOM Function Enable</source>
        <translation>Use the display&apos;s camera and microphone</translation>
    </message>
    <message>
        <source>Enable the virtual microphone and camera</source>
        <translation>Use the display&apos;s camera and microphone in your meetings</translation>
    </message>
    <message>
        <source>BYOM Not Supported</source>
        <translation>Camera and microphone not supported</translation>
    </message>
    <message>
        <source>BYOM is not supported on the current Display.</source>
        <translation>The current display does not support camera and microphone sharing.</translation>
    </message>
    <message>
        <source>This computer cannot host a virtual camera and microphone (v4l2loopback and a PulseAudio server are needed).</source>
        <translation>This computer cannot host a virtual camera and microphone (v4l2loopback and a PulseAudio server are needed).</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::BYOMUsageGuidance</name>
    <message>
        <source>While the screen is cast, pick &quot;Zelvanor Camera&quot; and &quot;Zelvanor Microphone&quot; in your meeting program to use the display&apos;s camera and microphone.</source>
        <translation>While the screen is cast, pick &quot;Zelvanor Camera&quot; and &quot;Zelvanor Microphone&quot; in your meeting program to use the display&apos;s camera and microphone.</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ConnectPage</name>
    <message>
        <source>inPut Connected Code</source>
        <translation>Enter connection code</translation>
    </message>
    <message>
        <source>Connected</source>
        <translation>Connected</translation>
    </message>
    <message>
        <source>Passcode server not configured,please check and try again</source>
        <translation>No passcode server is set up. Check the settings and try again.</translation>
    </message>
    <message>
        <source>virtual PC do not support Extend screen</source>
        <translation>A virtual PC cannot extend its screen</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ControlBtn</name>
    <message>
        <source>previous</source>
        <translation>Previous</translation>
    </message>
    <message>
        <source>next</source>
        <translation>Next</translation>
    </message>
    <message>
        <source>rotate left</source>
        <translation>Rotate left</translation>
    </message>
    <message>
        <source>rotate right</source>
        <translation>Rotate right</translation>
    </message>
    <message>
        <source>zoom in</source>
        <translation>Zoom in</translation>
    </message>
    <message>
        <source>zoom out</source>
        <translation>Zoom out</translation>
    </message>
    <message>
        <source>stop</source>
        <translation>Stop</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::DetailsExpansionWindow</name>
    <message>
        <source>Error code: %1</source>
        <translation>Error code: %1</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::DisplayWidget</name>
    <message>
        <source>Delay: %1 ms  Bitrate: %2 kbps  Frame rate: %3 fps</source>
        <translation>Delay: %1 ms  Bit rate: %2 kbps  Frame rate: %3 fps</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::FileScreenPage</name>
    <message>
        <source>FileScreen.</source>
        <translation>Showing file.</translation>
    </message>
    <message>
        <source>FileScreen..</source>
        <translation>Showing file..</translation>
    </message>
    <message>
        <source>FileScreen...</source>
        <translation>Showing file...</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::FileScreenStackWidget</name>
    <message>
        <source>File Screen</source>
        <translation>File</translation>
    </message>
    <message>
        <source>open a file</source>
        <translation>Open a file</translation>
    </message>
    <message>
        <source>The picture is renamed or deleted</source>
        <translation>The picture was renamed or deleted</translation>
    </message>
    <message>
        <source>Selesct image is lager than 4K</source>
        <translation>The selected picture is larger than 4K</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::HideSetWindow</name>
    <message>
        <source>Cast video stream</source>
        <translation>Cast video stream</translation>
    </message>
    <message>
        <source>Screen mouse flow</source>
        <translation>Pointer stream</translation>
    </message>
    <message>
        <source>Screen casting reverse control flow</source>
        <translation>Remote control stream</translation>
    </message>
    <message>
        <source>Reverse video streaming</source>
        <translation>Reverse screen video stream</translation>
    </message>
    <message>
        <source>Reverse screen transmission and reverse current control</source>
        <translation>Reverse screen and its control stream</translation>
    </message>
    <message>
        <source>Debug window</source>
        <translation>Debug window</translation>
    </message>
    <message>
        <source>Changes to the agreement</source>
        <translation>Transport protocols</translation>
    </message>
    <message>
        <source>Record the screen casting code stream</source>
        <translation>Record the cast streams</translation>
    </message>
    <message>
        <source>Coding scheme</source>
        <translation>Encoding</translation>
    </message>
    <message>
        <source>Realtime data</source>
        <translation>Live figures</translation>
    </message>
    <message>
        <source>ReverseScreen</source>
        <translation>Reverse screen</translation>
    </message>
    <message>
        <source>DebugLog</source>
        <translation>Debug log</translation>
    </message>
    <message>
        <source>Restore default </source>
        <translation>Restore defaults</translation>
    </message>
    <message>
        <source>RGB flow  </source>
        <translation>RGB stream</translation>
    </message>
    <message>
        <source>YUV flow</source>
        <translation>YUV stream</translation>
    </message>
    <message>
        <source>H264 flow</source>
        <translation>H.264 stream</translation>
    </message>
    <message>
        <source>RGB stream after LIBYUV conversion  </source>
        <translation>RGB stream after YUV conversion</translation>
    </message>
    <message>
        <source>RTP flow</source>
        <translation>RTP stream</translation>
    </message>
    <message>
        <source>Soft plaits are preferred</source>
        <translation>Prefer software encoding</translation>
    </message>
    <message>
        <source>Record Time Log</source>
        <translation>Record stage times</translation>
    </message>
    <message>
        <source>ShowDisplayInfo</source>
        <translation>Show stream figures</translation>
    </message>
    <message>
        <source>Show DisplaySetting</source>
        <translation>Show display settings</translation>
    </message>
    <message>
        <source>Not supported</source>
        <translation>Not supported</translation>
    </message>
    <message>
        <source>Closed</source>
        <translation>Off</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>On</translation>
    </message>
    <message>
        <source>BYOMShowModel</source>
        <translation>Camera and microphone mode</translation>
    </message>
    <message>
        <source>Record ReverseScreen Stream</source>
        <translation>Record the reverse screen stream</translation>
    </message>
    <message>
        <source>GetJPEG</source>
        <translation>Save a JPEG</translation>
    </message>
    <message>
        <source>RequestKeyFrame</source>
        <translation>Request a key frame</translation>
    </message>
    <message>
        <source>PrintReverseControlProcessLogs</source>
        <translation>Log remote control steps</translation>
    </message>
    <message>
        <source>PrintMouseInfomation</source>
        <translation>Log pointer details</translation>
    </message>
    <message>
        <source>show debug log</source>
        <translation>Show debug log</translation>
    </message>
    <message>
        <source>hide debug log</source>
        <translation>Hide debug log</translation>
    </message>
    <message>
        <source>Open the log</source>
        <translation>Open the log folder</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ManageErrorCode</name>
    <message>
        <source>Failed to connect to the screen,please try again</source>
        <translation>Could not connect to the screen. Please try again.</translation>
    </message>
    <message>
        <source>Request denied,please check the screen permission settings</source>
        <translation>Request denied. Please check the screen&apos;s permission settings.</translation>
    </message>
    <message>
        <source>Big screen version is too low, please upgrade and try again</source>
        <translation>The screen&apos;s software is too old. Please update it and try again.</translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please quit application and try again</source>
        <translation>Screen mirroring failed. Please quit the application and try again.</translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation>There is no network connection. Please check it and try again.</translation>
    </message>
    <message>
        <source>Reverse screen abnormal,please try again</source>
        <translation>Reverse screen failed. Please try again.</translation>
    </message>
    <message>
        <source>Passcode input error</source>
        <translation>Wrong passcode</translation>
    </message>
    <message>
        <source>Get infomation from passcode server fail, please check and try again</source>
        <translation>Could not reach the passcode server. Please check and try again.</translation>
    </message>
    <message>
        <source>You have been removed from the screen</source>
        <translation>You have been removed from the screen</translation>
    </message>
    <message>
        <source>Failed to turn on sound mirroring screen,please try again</source>
        <translation>Could not turn on sound. Please try again.</translation>
    </message>
    <message>
        <source>Failed to turn on reverse control,please try again</source>
        <translation>Could not turn on remote control. Please try again.</translation>
    </message>
    <message>
        <source>The current screen can only be mirroring screen at 1080P resolution</source>
        <translation>This screen can only mirror at 1080p</translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please try again</source>
        <translation>Screen mirroring failed. Please try again.</translation>
    </message>
    <message>
        <source>Fast screen mirroring fail,please try again</source>
        <translation>Fast mirroring failed. Please try again.</translation>
    </message>
    <message>
        <source>The number of screens exceeds the limit. Please exit other screens first</source>
        <translation>Too many screens are being cast. Please stop another cast first.</translation>
    </message>
    <message>
        <source>The number of reverse screens exceeds the limit. Please exit other reverse screens first</source>
        <translation>Too many reverse screens are open. Please close another one first.</translation>
    </message>
    <message>
        <source>Screen mirroring ended</source>
        <translation>Screen mirroring ended</translation>
    </message>
    <message>
        <source>Reverse screen mirroring ended</source>
        <translation>Reverse screen ended</translation>
    </message>
    <message>
        <source>Mouse screen error</source>
        <translation>Pointer error</translation>
    </message>
    <message>
        <source>The mouse cannot be displayed on the large screen,please try again</source>
        <translation>The pointer cannot be shown on the large screen. Please try again.</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ModelButton</name>
    <message>
        <source>ExtendedMode</source>
        <translation>Extend</translation>
    </message>
    <message>
        <source>WindowMode</source>
        <translation>Window</translation>
    </message>
    <message>
        <source>CopyMode</source>
        <translation>Mirror</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::NetTestWidget</name>
    <message>
        <source>Network test</source>
        <translation>Network test</translation>
    </message>
    <message>
        <source>Local address:</source>
        <translation>Local address:</translation>
    </message>
    <message>
        <source>Address:</source>
        <translation>Address:</translation>
    </message>
    <message>
        <source>Delay:</source>
        <translation>Delay:</translation>
    </message>
    <message>
        <source>Result:</source>
        <translation>Result:</translation>
    </message>
    <message>
        <source>Gateway</source>
        <translation>Gateway</translation>
    </message>
    <message>
        <source>Server</source>
        <translation>Server</translation>
    </message>
    <message>
        <source>Delay</source>
        <translation>Delay</translation>
    </message>
    <message>
        <source>Screen port</source>
        <translation>Screen port</translation>
    </message>
    <message>
        <source>Test</source>
        <translation>Test</translation>
    </message>
    <message>
        <source>Screen address:</source>
        <translation>Screen address:</translation>
    </message>
    <message>
        <source>Port:</source>
        <translation>Port:</translation>
    </message>
    <message>
        <source>Error:</source>
        <translation>Error:</translation>
    </message>
    <message>
        <source>Error.Ip Parsing exception.</source>
        <translation>Error: the address could not be parsed.</translation>
    </message>
    <message>
        <source>No server address is set.</source>
        <translation>No server address is set.</translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation>There is no network connection. Please check it and try again.</translation>
    </message>
    <message>
        <source>No gateway</source>
        <translation>No gateway</translation>
    </message>
    <message>
        <source>Success.There is a large delay</source>
        <translation>Success, but the delay is high</translation>
    </message>
    <message>
        <source>Success.</source>
        <translation>Success.</translation>
    </message>
    <message>
        <source>Error.Ip pinged failed.</source>
        <translation>Error: no answer to ping.</translation>
    </message>
    <message>
        <source>Testing...</source>
        <translation>Testing...</translation>
    </message>
    <message>
        <source>Success.The screen port is reachable</source>
        <translation>Success: the screen&apos;s port is reachable</translation>
    </message>
    <message>
        <source>Error.The screen port cannot be reached</source>
        <translation>Error: the screen&apos;s port cannot be reached</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::OrvixUpgrade</name>
    <message>
        <source>Nearby screens: %1</source>
        <translation>Nearby screens: %1</translation>
    </message>
    <message>
        <source>Show main window</source>
        <translation>Show main window</translation>
    </message>
    <message>
        <source>Exit</source>
        <translation>Quit</translation>
    </message>
    <message>
        <source>virtual PC network isolation </source>
        <translation>Virtual PC network is isolated</translation>
    </message>
    <message>
        <source>Resolution changes</source>
        <translation>Resolution changed</translation>
    </message>
    <message>
        <source>The client resolution has been modified and will be re displayed</source>
        <translation>The screen resolution of this PC changed; the cast is restarted with it</translation>
    </message>
    <message>
        <source>Bit rate: %1 kbps</source>
        <translation>Bit rate: %1 kbps</translation>
    </message>
    <message>
        <source>Frame rate: %1 fps</source>
        <translation>Frame rate: %1 fps</translation>
    </message>
    <message>
        <source>Delay: %1 ms</source>
        <translation>Delay: %1 ms</translation>
    </message>
    <message>
        <source>Packet loss</source>
        <translation>Packet loss</translation>
    </message>
    <message>
        <source>No packet loss</source>
        <translation>No packet loss</translation>
    </message>
    <message>
        <source>Bit stream exception</source>
        <translation>Stream problem</translation>
    </message>
    <message>
        <source>No bit stream for a long time</source>
        <translation>No video has arrived for a long time</translation>
    </message>
    <message>
        <source>Connection exception with server</source>
        <translation>Connection to the screen lost</translation>
    </message>
    <message>
        <source>Reconnecting failed</source>
        <translation>Reconnecting failed</translation>
    </message>
    <message>
        <source>Reconnecting</source>
        <translation>Reconnecting...</translation>
    </message>
    <message>
        <source>Reverse Control</source>
        <translation>Remote control</translation>
    </message>
    <message>
        <source>Reverse Control Invaild</source>
        <translation>Remote control is not available</translation>
    </message>
    <message>
        <source>Net Exception</source>
        <translation>Network problem</translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation>There is no network connection. Please check it and try again.</translation>
    </message>
    <message>
        <source>open a file</source>
        <translation>Open a file</translation>
    </message>
    <message>
        <source>Pictures, audio and video</source>
        <translation>Pictures, audio and video</translation>
    </message>
    <message>
        <source>This file cannot be cast</source>
        <translation>This file cannot be cast</translation>
    </message>
    <message>
        <source>Setup</source>
        <translation>Settings</translation>
    </message>
    <message>
        <source>BYOM Not Supported</source>
        <translation>Camera and microphone not supported</translation>
    </message>
    <message>
        <source>Camera and microphone</source>
        <translation>Camera and microphone</translation>
    </message>
    <message>
        <source>Stop casting</source>
        <translation>Stop casting</translation>
    </message>
    <message>
        <source>Mirroring check</source>
        <translation>Casting check</translation>
    </message>
    <message>
        <source>Save diagnostic bundle...</source>
        <translation>Save diagnostic bundle...</translation>
    </message>
    <message>
        <source>About Zelvanor</source>
        <translation>About Zelvanor</translation>
    </message>
    <message>
        <source>Idle</source>
        <translation>Idle</translation>
    </message>
    <message>
        <source>Connected</source>
        <translation>Connected</translation>
    </message>
    <message>
        <source>Casting</source>
        <translation>Casting</translation>
    </message>
    <message>
        <source>Showing the panel&apos;s screen</source>
        <translation>Showing the panel&apos;s screen</translation>
    </message>
    <message>
        <source>Connecting</source>
        <translation>Connecting</translation>
    </message>
    <message>
        <source>Open screen casting for meeting rooms.</source>
        <translation>Open screen casting for meeting rooms.</translation>
    </message>
    <message>
        <source>Built on these libraries, under their own licences:</source>
        <translation>Built on these libraries, under their own licences:</translation>
    </message>
    <message>
        <source>Display system</source>
        <translation>Display system</translation>
    </message>
    <message>
        <source>Video encoder</source>
        <translation>Video encoder</translation>
    </message>
    <message>
        <source>Sound server</source>
        <translation>Sound server</translation>
    </message>
    <message>
        <source>Network</source>
        <translation>Network</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Limits casting</source>
        <translation>Limits casting</translation>
    </message>
    <message>
        <source>Save diagnostic bundle</source>
        <translation>Save diagnostic bundle</translation>
    </message>
    <message>
        <source>Diagnostic bundle (*.tar.gz)</source>
        <translation>Diagnostic bundle (*.tar.gz)</translation>
    </message>
    <message>
        <source>Diagnostic bundle saved</source>
        <translation>Diagnostic bundle saved</translation>
    </message>
    <message>
        <source>Send %1 to your support team. It holds logs and settings, no keys.</source>
        <translation>Send %1 to your support team. It holds logs and settings, no keys.</translation>
    </message>
    <message>
        <source>Diagnostic bundle not saved</source>
        <translation>Diagnostic bundle not saved</translation>
    </message>
    <message>
        <source>The screen cannot show this file</source>
        <translation>The screen cannot show this file</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::PopupWindow</name>
    <message>
        <source>Waiting for permission</source>
        <translation>Waiting for permission</translation>
    </message>
    <message>
        <source>The screen has to allow this PC first. Please confirm on the screen.</source>
        <translation>The screen has to allow this PC first. Please confirm on the screen.</translation>
    </message>
    <message>
        <source>The screen is asking its user to accept the request. Please wait.</source>
        <translation>The screen is asking its user to accept the request. Please wait.</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ReverseScreen</name>
    <message>
        <source>Reverse Screen</source>
        <translation>Reverse Screen</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ReverseScreenSidebar</name>
    <message>
        <source>Control</source>
        <translation>Control</translation>
    </message>
    <message>
        <source>Reverse control</source>
        <translation>Remote control</translation>
    </message>
    <message>
        <source>Home</source>
        <translation>Home</translation>
    </message>
    <message>
        <source>Back to home</source>
        <translation>Go to the home screen</translation>
    </message>
    <message>
        <source>Back</source>
        <translation>Back</translation>
    </message>
    <message>
        <source>Back to previous</source>
        <translation>Go back</translation>
    </message>
    <message>
        <source>Photo</source>
        <translation>Photo</translation>
    </message>
    <message>
        <source>Take a snapshot</source>
        <translation>Take a snapshot</translation>
    </message>
    <message>
        <source>Refresh</source>
        <translation>Refresh</translation>
    </message>
    <message>
        <source>Refresh the picture</source>
        <translation>Refresh the picture</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ScreenPage</name>
    <message>
        <source>Pause</source>
        <translation>Pause</translation>
    </message>
    <message>
        <source>Sound</source>
        <translation>Sound</translation>
    </message>
    <message>
        <source>Touch Control</source>
        <translation>Touch control</translation>
    </message>
    <message>
        <source>Switch Window</source>
        <translation>Switch window</translation>
    </message>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation>Enter the connection code to cast your screen</translation>
    </message>
    <message>
        <source>SCreening .</source>
        <translation>Casting...</translation>
    </message>
    <message>
        <source>Continue</source>
        <translation>Resume</translation>
    </message>
    <message>
        <source>Window is protected by authority, so can not be casted when it is minimized</source>
        <translation>This window is protected and cannot be cast while it is minimized</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::SelectScreenWindow_linux</name>
    <message>
        <source>Refresh</source>
        <translation>Refresh</translation>
    </message>
    <message>
        <source>Confirm</source>
        <translation>Confirm</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::SettingWidget</name>
    <message>
        <source>Please enter a port number in the range of 0-65535</source>
        <translation>Enter a port number from 0 to 65535</translation>
    </message>
    <message>
        <source>Setup</source>
        <translation>Settings</translation>
    </message>
    <message>
        <source>BasicSettings</source>
        <translation>General</translation>
    </message>
    <message>
        <source>DisplaySetting</source>
        <translation>Display</translation>
    </message>
    <message>
        <source>Shortcut</source>
        <translation>Shortcuts</translation>
    </message>
    <message>
        <source>About</source>
        <translation>About</translation>
    </message>
    <message>
        <source>Feedback</source>
        <translation>Feedback</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Update</translation>
    </message>
    <message>
        <source>Send your feedback with the logs</source>
        <translation>Send your feedback with the logs</translation>
    </message>
    <message>
        <source>You are using the latest version</source>
        <translation>You are using the latest version</translation>
    </message>
    <message>
        <source>MyHostName:</source>
        <translation>This PC&apos;s name:</translation>
    </message>
    <message>
        <source>ServerIP:</source>
        <translation>Passcode server:</translation>
    </message>
    <message>
        <source>Port:</source>
        <translation>Port:</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Network test</source>
        <translation>Network test</translation>
    </message>
    <message>
        <source>Support to display the following information</source>
        <translation>Show these figures while casting</translation>
    </message>
    <message>
        <source>Bitrate</source>
        <translation>Bit rate</translation>
    </message>
    <message>
        <source>Delay</source>
        <translation>Delay</translation>
    </message>
    <message>
        <source>Framerate</source>
        <translation>Frame rate</translation>
    </message>
    <message>
        <source>Packetlossrate</source>
        <translation>Packet loss</translation>
    </message>
    <message>
        <source>High-resolution cast</source>
        <translation>High-resolution casting</translation>
    </message>
    <message>
        <source>Turn on high-resolution cast</source>
        <translation>Turn on high-resolution casting</translation>
    </message>
    <message>
        <source>Shortcut screen IP:</source>
        <translation>Screen shortcut address:</translation>
    </message>
    <message>
        <source>Start/Stop Screen</source>
        <translation>Start/stop casting</translation>
    </message>
    <message>
        <source>Pause/Continue Screen</source>
        <translation>Pause/resume casting</translation>
    </message>
    <message>
        <source>reset</source>
        <translation>Reset</translation>
    </message>
    <message>
        <source>Invalid passcode server IP address. Please enter again</source>
        <translation>The passcode server address is not valid. Please enter it again.</translation>
    </message>
    <message>
        <source>The host name cannot be empty</source>
        <translation>The PC name cannot be empty</translation>
    </message>
    <message>
        <source>Saving failed. Please run Zelvanor as an administrator</source>
        <translation>Saving failed. Please check that Zelvanor may write its settings.</translation>
    </message>
    <message>
        <source>After it is turned on, the high-resolution screen projection will be used preferentially. The resource consumption is large, which may affect the computer performance. When the CPU utilization is high, the screen projection effect may not be ideal</source>
        <translation>High-resolution casting uses more of the computer&apos;s resources and may slow it down. When the processor is busy, the cast may not look its best.</translation>
    </message>
    <message>
        <source>The start shortcut keys may be occupied by other programs, please reconfigure</source>
        <translation>The start shortcut may be taken by another program. Please choose another key.</translation>
    </message>
    <message>
        <source>The pause shortcut keys may be occupied by other programs, please reconfigure</source>
        <translation>The pause shortcut may be taken by another program. Please choose another key.</translation>
    </message>
    <message>
        <source>The shortcut has been registered, please change the key and try again</source>
        <translation>This shortcut is already taken. Please choose another key.</translation>
    </message>
    <message>
        <source>Successfully modified</source>
        <translation>Saved</translation>
    </message>
    <message>
        <source>Shortcut keys only support the configuration of English characters</source>
        <translation>Shortcuts can only use the letters A to Z</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::VideoPage</name>
    <message>
        <source>previous</source>
        <translation>Previous</translation>
    </message>
    <message>
        <source>pause</source>
        <translation>Pause</translation>
    </message>
    <message>
        <source>next</source>
        <translation>Next</translation>
    </message>
    <message>
        <source>stop</source>
        <translation>Stop</translation>
    </message>
    <message>
        <source>%1 is casting...</source>
        <translation>%1 is casting...</translation>
    </message>
    <message>
        <source>play</source>
        <translation>Play</translation>
    </message>
</context>
</TS>
