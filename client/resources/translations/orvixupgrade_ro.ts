<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ro" sourcelanguage="en">
<context>
    <name>ConnectPage</name>
    <message>
        <source>Please enter the connection code to connect the screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The connection code is shown on the large screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start Connect</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mirror Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Expand Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Window Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>File Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>disconnect</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DetailsExpansionWindow</name>
    <message>
        <source>Details</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check that the PC and the screen are on the same network, then try again. If it keeps failing, send this code to your administrator.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DynamicWindow</name>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ExceptionCallBack</name>
    <message>
        <source>Failed to turn on reverse control,</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> is controlling the screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed to turn on reverse control, the screen only for displaying</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>FileScreenPage</name>
    <message>
        <source>FileScreen.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop Screen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>OrvixUpgrade</name>
    <message>
        <source>Cast your screen to a display panel</source>
        <translation>Proiectați ecranul pe un panou de afișare</translation>
    </message>
    <message>
        <source>Screen Mirroring</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connect Code</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Virtual display in use</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PopupWindow</name>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ScreenPage</name>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop Screen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>SharePage</name>
    <message>
        <source>Please enter the connection code to show the screen here</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TipWindows</name>
    <message>
        <source>ShowDetails</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::BYOMSetting</name>
    <message>
        <source>BYOM Function Enable</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Enable the virtual microphone and camera</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>BYOM Not Supported</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>BYOM is not supported on the current Display.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>This computer cannot host a virtual camera and microphone (v4l2loopback and a PulseAudio server are needed).</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::BYOMUsageGuidance</name>
    <message>
        <source>While the screen is cast, pick &quot;Zelvanor Camera&quot; and &quot;Zelvanor Microphone&quot; in your meeting program to use the display&apos;s camera and microphone.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ConnectPage</name>
    <message>
        <source>inPut Connected Code</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connected</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Passcode server not configured,please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>virtual PC do not support Extend screen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ControlBtn</name>
    <message>
        <source>previous</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>next</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>rotate left</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>rotate right</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>zoom in</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>zoom out</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>stop</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::DetailsExpansionWindow</name>
    <message>
        <source>Error code: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::DisplayWidget</name>
    <message>
        <source>Delay: %1 ms  Bitrate: %2 kbps  Frame rate: %3 fps</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::FileScreenPage</name>
    <message>
        <source>FileScreen.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>FileScreen..</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>FileScreen...</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::FileScreenStackWidget</name>
    <message>
        <source>File Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>open a file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The picture is renamed or deleted</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Selesct image is lager than 4K</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::HideSetWindow</name>
    <message>
        <source>Cast video stream</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Screen mouse flow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Screen casting reverse control flow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse video streaming</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse screen transmission and reverse current control</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Debug window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Changes to the agreement</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Record the screen casting code stream</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Coding scheme</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Realtime data</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>ReverseScreen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>DebugLog</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Restore default </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>RGB flow  </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>YUV flow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>H264 flow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>RGB stream after LIBYUV conversion  </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>RTP flow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Soft plaits are preferred</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Record Time Log</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>ShowDisplayInfo</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show DisplaySetting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not supported</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Closed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>BYOMShowModel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Record ReverseScreen Stream</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>GetJPEG</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>RequestKeyFrame</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>PrintReverseControlProcessLogs</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>PrintMouseInfomation</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>show debug log</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>hide debug log</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open the log</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ManageErrorCode</name>
    <message>
        <source>Failed to connect to the screen,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Request denied,please check the screen permission settings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Big screen version is too low, please upgrade and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please quit application and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse screen abnormal,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Passcode input error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Get infomation from passcode server fail, please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You have been removed from the screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed to turn on sound mirroring screen,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed to turn on reverse control,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The current screen can only be mirroring screen at 1080P resolution</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Fast screen mirroring fail,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The number of screens exceeds the limit. Please exit other screens first</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The number of reverse screens exceeds the limit. Please exit other reverse screens first</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Screen mirroring ended</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse screen mirroring ended</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mouse screen error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The mouse cannot be displayed on the large screen,please try again</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ModelButton</name>
    <message>
        <source>ExtendedMode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>WindowMode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>CopyMode</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::NetTestWidget</name>
    <message>
        <source>Network test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Local address:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Address:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delay:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Result:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Gateway</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delay</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Screen port</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Screen address:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Port:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Error:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Error.Ip Parsing exception.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No server address is set.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No gateway</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Success.There is a large delay</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Success.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Error.Ip pinged failed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Testing...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Success.The screen port is reachable</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Error.The screen port cannot be reached</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::OrvixUpgrade</name>
    <message>
        <source>Nearby screens: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show main window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Exit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>virtual PC network isolation </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Resolution changes</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The client resolution has been modified and will be re displayed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Bit rate: %1 kbps</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Frame rate: %1 fps</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delay: %1 ms</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Packet loss</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No packet loss</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Bit stream exception</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No bit stream for a long time</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connection exception with server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reconnecting failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reconnecting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse Control</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse Control Invaild</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Net Exception</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>open a file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Pictures, audio and video</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>This file cannot be cast</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Setup</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>BYOM Not Supported</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Camera and microphone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop casting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mirroring check</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save diagnostic bundle...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>About Zelvanor</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Idle</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connected</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Casting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Showing the panel&apos;s screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connecting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open screen casting for meeting rooms.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Built on these libraries, under their own licences:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Display system</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Video encoder</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sound server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Network</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Limits casting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save diagnostic bundle</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Diagnostic bundle (*.tar.gz)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Diagnostic bundle saved</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Send %1 to your support team. It holds logs and settings, no keys.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Diagnostic bundle not saved</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The screen cannot show this file</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::PopupWindow</name>
    <message>
        <source>Waiting for permission</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The screen has to allow this PC first. Please confirm on the screen.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The screen is asking its user to accept the request. Please wait.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ReverseScreen</name>
    <message>
        <source>Reverse Screen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ReverseScreenSidebar</name>
    <message>
        <source>Control</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse control</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Home</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Back to home</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Back</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Back to previous</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Photo</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Take a snapshot</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Refresh</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Refresh the picture</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ScreenPage</name>
    <message>
        <source>Pause</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sound</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Touch Control</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Switch Window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SCreening .</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Continue</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Window is protected by authority, so can not be casted when it is minimized</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::SelectScreenWindow_linux</name>
    <message>
        <source>Refresh</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Confirm</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::SettingWidget</name>
    <message>
        <source>Please enter a port number in the range of 0-65535</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Setup</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>BasicSettings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>DisplaySetting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Shortcut</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>About</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Feedback</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Update</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Send your feedback with the logs</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You are using the latest version</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>MyHostName:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>ServerIP:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Port:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Network test</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Support to display the following information</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Bitrate</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delay</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Framerate</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Packetlossrate</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>High-resolution cast</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Turn on high-resolution cast</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Shortcut screen IP:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start/Stop Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Pause/Continue Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>reset</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Invalid passcode server IP address. Please enter again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The host name cannot be empty</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Saving failed. Please run Zelvanor as an administrator</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>After it is turned on, the high-resolution screen projection will be used preferentially. The resource consumption is large, which may affect the computer performance. When the CPU utilization is high, the screen projection effect may not be ideal</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The start shortcut keys may be occupied by other programs, please reconfigure</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The pause shortcut keys may be occupied by other programs, please reconfigure</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The shortcut has been registered, please change the key and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Successfully modified</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Shortcut keys only support the configuration of English characters</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::VideoPage</name>
    <message>
        <source>previous</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>pause</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>next</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>stop</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 is casting...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>play</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
