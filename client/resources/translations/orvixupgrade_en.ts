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
        <translation>Start Connect</translation>
    </message>
    <message>
        <source>Mirror Screen</source>
        <translation>Mirror Screen</translation>
    </message>
    <message>
        <source>Expand Screen</source>
        <translation>Expand Screen</translation>
    </message>
    <message>
        <source>Window Screen</source>
        <translation>Window Screen</translation>
    </message>
    <message>
        <source>File Screen</source>
        <translation>File Screen</translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation>Reverse Screen</translation>
    </message>
    <message>
        <source>disconnect</source>
        <translation>disconnect</translation>
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
        <translation>Failed to turn on reverse control,</translation>
    </message>
    <message>
        <source> is controlling the screen</source>
        <translation> is controlling the screen</translation>
    </message>
    <message>
        <source>Failed to turn on reverse control, the screen only for displaying</source>
        <translation>Failed to turn on reverse control, the screen only for displaying</translation>
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
        <translation>Connect Code</translation>
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
        <translation>Please enter the connection code to cast screen</translation>
    </message>
    <message>
        <source>Start Screen</source>
        <translation>Start Screen</translation>
    </message>
    <message>
        <source>Stop Screen</source>
        <translation>Stop Screen</translation>
    </message>
</context>
<context>
    <name>SharePage</name>
    <message>
        <source>Please enter the connection code to show the screen here</source>
        <translation>Please enter the connection code to show the screen here</translation>
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
        <translation>ShowDetails</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ConnectPage</name>
    <message>
        <source>inPut Connected Code</source>
        <translation>inPut Connected Code</translation>
    </message>
    <message>
        <source>Connected</source>
        <translation>Connected</translation>
    </message>
    <message>
        <source>Passcode server not configured,please check and try again</source>
        <translation>Passcode server not configured,please check and try again</translation>
    </message>
    <message>
        <source>virtual PC do not support Extend screen</source>
        <translation>virtual PC do not support Extend screen</translation>
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
    <name>qorquicomponents::ManageErrorCode</name>
    <message>
        <source>Failed to connect to the screen,please try again</source>
        <translation>Failed to connect to the screen,please try again</translation>
    </message>
    <message>
        <source>Request denied,please check the screen permission settings</source>
        <translation>Request denied,please check the screen permission settings</translation>
    </message>
    <message>
        <source>Big screen version is too low, please upgrade and try again</source>
        <translation>Big screen version is too low, please upgrade and try again</translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please quit application and try again</source>
        <translation>Mirroring screen abnormal,please quit application and try again</translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation>There is no network at present, please check and try again</translation>
    </message>
    <message>
        <source>Reverse screen abnormal,please try again</source>
        <translation>Reverse screen abnormal,please try again</translation>
    </message>
    <message>
        <source>Passcode input error</source>
        <translation>Passcode input error</translation>
    </message>
    <message>
        <source>Get infomation from passcode server fail, please check and try again</source>
        <translation>Get infomation from passcode server fail, please check and try again</translation>
    </message>
    <message>
        <source>You have been removed from the screen</source>
        <translation>You have been removed from the screen</translation>
    </message>
    <message>
        <source>Failed to turn on sound mirroring screen,please try again</source>
        <translation>Failed to turn on sound mirroring screen,please try again</translation>
    </message>
    <message>
        <source>Failed to turn on reverse control,please try again</source>
        <translation>Failed to turn on reverse control,please try again</translation>
    </message>
    <message>
        <source>The current screen can only be mirroring screen at 1080P resolution</source>
        <translation>The current screen can only be mirroring screen at 1080P resolution</translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please try again</source>
        <translation>Mirroring screen abnormal,please try again</translation>
    </message>
    <message>
        <source>Fast screen mirroring fail,please try again</source>
        <translation>Fast screen mirroring fail,please try again</translation>
    </message>
    <message>
        <source>The number of screens exceeds the limit. Please exit other screens first</source>
        <translation>The number of screens exceeds the limit. Please exit other screens first</translation>
    </message>
    <message>
        <source>The number of reverse screens exceeds the limit. Please exit other reverse screens first</source>
        <translation>The number of reverse screens exceeds the limit. Please exit other reverse screens first</translation>
    </message>
    <message>
        <source>Screen mirroring ended</source>
        <translation>Screen mirroring ended</translation>
    </message>
    <message>
        <source>Reverse screen mirroring ended</source>
        <translation>Reverse screen mirroring ended</translation>
    </message>
    <message>
        <source>Mouse screen error</source>
        <translation>Mouse screen error</translation>
    </message>
    <message>
        <source>The mouse cannot be displayed on the large screen,please try again</source>
        <translation>The mouse cannot be displayed on the large screen,please try again</translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ModelButton</name>
    <message>
        <source>ExtendedMode</source>
        <translation>ExtendedMode</translation>
    </message>
    <message>
        <source>WindowMode</source>
        <translation>WindowMode</translation>
    </message>
    <message>
        <source>CopyMode</source>
        <translation>CopyMode</translation>
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
        <translation>Exit</translation>
    </message>
    <message>
        <source>virtual PC network isolation </source>
        <translation>virtual PC network isolation </translation>
    </message>
    <message>
        <source>Resolution changes</source>
        <translation>Resolution changes</translation>
    </message>
    <message>
        <source>The client resolution has been modified and will be re displayed</source>
        <translation>The client resolution has been modified and will be re displayed</translation>
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
        <translation>Bit stream exception</translation>
    </message>
    <message>
        <source>No bit stream for a long time</source>
        <translation>No bit stream for a long time</translation>
    </message>
    <message>
        <source>Connection exception with server</source>
        <translation>Connection exception with server</translation>
    </message>
    <message>
        <source>Reconnecting failed</source>
        <translation>Reconnecting failed</translation>
    </message>
    <message>
        <source>Reconnecting</source>
        <translation>Reconnecting</translation>
    </message>
    <message>
        <source>Reverse Control</source>
        <translation>Reverse Control</translation>
    </message>
    <message>
        <source>Reverse Control Invaild</source>
        <translation>Reverse Control Invaild</translation>
    </message>
    <message>
        <source>Net Exception</source>
        <translation>Net Exception</translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation>There is no network at present, please check and try again</translation>
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
        <translation>Touch Control</translation>
    </message>
    <message>
        <source>Switch Window</source>
        <translation>Switch Window</translation>
    </message>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation>Please enter the connection code to cast screen</translation>
    </message>
    <message>
        <source>SCreening .</source>
        <translation>SCreening .</translation>
    </message>
    <message>
        <source>Continue</source>
        <translation>Continue</translation>
    </message>
    <message>
        <source>Window is protected by authority, so can not be casted when it is minimized</source>
        <translation>Window is protected by authority, so can not be casted when it is minimized</translation>
    </message>
</context>
</TS>
